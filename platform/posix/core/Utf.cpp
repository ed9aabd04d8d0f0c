#include "platform/posix/core/Utf.h"

#include <algorithm>
#include <iterator>

namespace vlt::posix
{
namespace
{

constexpr char16_t EscapeBase = 0xDC00;

constexpr bool IsHigh(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLow(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
constexpr bool IsEscape(char32_t unit)
{
    return unit >= 0xDC80 && unit <= 0xDCFF;
}
constexpr unsigned Byte(char c)
{
    return static_cast<unsigned char>(c);
}
constexpr char16_t Unit(char32_t value)
{
    return static_cast<char16_t>(value);
}

void AppendUtf8(std::string& out, char32_t code)
{
    const auto put = [&out](char32_t value) { out.push_back(static_cast<char>(static_cast<unsigned char>(value))); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | (code >> 6));
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | (code >> 12));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | (code >> 18));
        put(0x80 | ((code >> 12) & 0x3F));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

struct Sequence {
    std::size_t bytes; // 0: not the start of a well-formed sequence
    char32_t code;
};

// The sequence at the start of the text, also the three-byte form of a surrogate.
Sequence Decode(std::string_view text)
{
    const unsigned lead = Byte(text[0]);
    std::size_t bytes = 0;
    char32_t code = 0;
    char32_t least = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        bytes = 2, code = lead & 0x1F, least = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        bytes = 3, code = lead & 0x0F, least = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        bytes = 4, code = lead & 0x07, least = 0x10000;
    }
    if (bytes == 0 || text.size() < bytes)
        return {0, 0};
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((Byte(text[i]) & 0xC0) != 0x80)
            return {0, 0};
        code = (code << 6) | (Byte(text[i]) & 0x3F);
    }
    // The three-byte form of an escape would come back as the byte it stands for.
    if (code < least || code > 0x10FFFF || IsEscape(code))
        return {0, 0};
    return {bytes, code};
}

// A high surrogate that came in its three-byte form must not pair with the unit that follows it: the
// pair would come back as one four-byte sequence. It is kept as three escaped bytes instead.
void AppendLow(std::u16string& out, char16_t unit)
{
    if (!out.empty() && IsHigh(out.back())) {
        std::string bytes;
        AppendUtf8(bytes, out.back());
        out.pop_back();
        for (const char c : bytes)
            out.push_back(Unit(EscapeBase + Byte(c)));
    }
    out.push_back(unit);
}

struct FoldRange {
    char16_t first;
    char16_t last;
    std::uint8_t step;
    std::int32_t delta;
};
constexpr FoldRange FoldRanges[] = {
#include "platform/posix/core/FoldTable.inc"
};

} // namespace

std::u16string Utf16FromUtf8(std::string_view text)
{
    const auto plain = std::find_if(text.begin(), text.end(), [](char c) { return Byte(c) >= 0x80; });
    std::u16string out(text.begin(), plain);
    out.reserve(text.size());
    for (std::size_t at = out.size(); at < text.size();) {
        const unsigned byte = Byte(text[at]);
        if (byte < 0x80) {
            out.push_back(Unit(byte));
            ++at;
            continue;
        }
        const Sequence next = Decode(text.substr(at));
        if (next.bytes == 0) {
            AppendLow(out, Unit(EscapeBase + byte));
            ++at;
            continue;
        }
        if (next.code >= 0x10000) {
            out.push_back(Unit(0xD800 + ((next.code - 0x10000) >> 10)));
            out.push_back(Unit(0xDC00 + ((next.code - 0x10000) & 0x3FF)));
        } else if (IsLow(next.code)) {
            AppendLow(out, Unit(next.code));
        } else {
            out.push_back(Unit(next.code));
        }
        at += next.bytes;
    }
    return out;
}

std::string Utf8FromUtf16(std::u16string_view text)
{
    // Most texts are names of plain letters.
    const auto plain = std::find_if(text.begin(), text.end(), [](char16_t unit) { return unit >= 0x80; });
    std::string out(static_cast<std::size_t>(plain - text.begin()), '\0');
    std::transform(text.begin(), plain, out.begin(), [](char16_t unit) { return static_cast<char>(unit); });
    if (plain != text.end())
        out.reserve(text.size() + text.size() / 2);
    for (std::size_t i = out.size(); i < text.size(); ++i) {
        const char32_t unit = text[i];
        if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1]))
            AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (char32_t{text[++i]} - 0xDC00));
        else if (IsEscape(unit))
            out.push_back(static_cast<char>(static_cast<unsigned char>(unit - EscapeBase)));
        else
            AppendUtf8(out, unit);
    }
    return out;
}

char16_t FoldCase(char16_t unit) noexcept
{
    if (unit < 0x80)
        return unit >= u'A' && unit <= u'Z' ? Unit(unit + 0x20u) : unit;
    const auto* const range = std::partition_point(std::begin(FoldRanges), std::end(FoldRanges),
                                                   [unit](const FoldRange& r) { return r.last < unit; });
    if (range == std::end(FoldRanges) || unit < range->first || (unit - range->first) % range->step != 0)
        return unit;
    return static_cast<char16_t>(unit + range->delta);
}

std::u16string FoldCase(std::u16string_view text)
{
    std::u16string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](char16_t unit) { return FoldCase(unit); });
    return out;
}

} // namespace vlt::posix
