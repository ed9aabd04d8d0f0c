#include "platform/posix/registry/KeyName.h"

#include "platform/posix/core/Utf.h"

#include <algorithm>
#include <cstring>

namespace vlt::posix::registry
{
namespace
{

constexpr std::size_t HashDigits = 32;
constexpr std::size_t LongPrefix = MaxFileName - HashDigits - 1;

constexpr char Digits[] = "0123456789abcdef";

char16_t Fold(char16_t unit) noexcept
{
    if (unit < 0x80)
        return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
    return FoldCase(unit);
}

bool IsHigh(char16_t unit) noexcept
{
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLow(char16_t unit) noexcept
{
    return unit >= 0xDC00 && unit < 0xE000;
}

bool IsPlain(char16_t unit) noexcept
{
    return unit >= 0x20 && unit < 0x7F && unit != u'/' && unit != u'%' && unit != u'~' && unit != u'@';
}

// One character of the name, at most two units, as at most six bytes. Returns the units taken.
std::size_t Encode(WStringView rest, char (&bytes)[6], std::size_t& count) noexcept
{
    const char16_t unit = Fold(rest[0]);
    count = 0;
    const auto put = [&](std::uint32_t byte) { bytes[count++] = static_cast<char>(byte); };
    if (IsPlain(unit)) {
        put(unit);
        return 1;
    }
    if (unit < 0x80) {
        put('%');
        put(static_cast<unsigned char>(Digits[unit >> 4]));
        put(static_cast<unsigned char>(Digits[unit & 15]));
        return 1;
    }
    if (IsHigh(unit) && rest.size() > 1 && IsLow(rest[1])) {
        const std::uint32_t point = 0x10000u + ((unit & 0x3FFu) << 10) + (rest[1] & 0x3FFu);
        put(0xF0u | (point >> 18));
        put(0x80u | ((point >> 12) & 0x3Fu));
        put(0x80u | ((point >> 6) & 0x3Fu));
        put(0x80u | (point & 0x3Fu));
        return 2;
    }
    if (IsHigh(unit) || IsLow(unit)) {
        put('%');
        put('u');
        for (int shift = 12; shift >= 0; shift -= 4)
            put(static_cast<unsigned char>(Digits[(unit >> shift) & 15]));
        return 1;
    }
    if (unit >= 0x800) {
        put(0xE0u | (unit >> 12));
        put(0x80u | ((unit >> 6) & 0x3Fu));
    } else {
        put(0xC0u | (unit >> 6));
    }
    put(0x80u | (unit & 0x3Fu));
    return 1;
}

void AppendHash(char* target, WStringView name) noexcept
{
    std::uint64_t hash[2] = {0x9E3779B97F4A7C15u, 0xC2B2AE3D27D4EB4Fu};
    for (const char16_t unit : name) {
        hash[0] = ((hash[0] ^ Fold(unit)) * 0x100000001B3u);
        hash[1] = ((hash[1] << 29) | (hash[1] >> 35)) * 0xD6E8FEB86659FD93u + Fold(unit);
    }
    *target++ = '~';
    for (const std::uint64_t part : hash)
        for (int shift = 60; shift >= 0; shift -= 4)
            *target++ = Digits[(part >> shift) & 15];
    *target = '\0';
}

int Digit(char c) noexcept
{
    const char* const at = c ? std::strchr(Digits, c) : nullptr;
    return at ? static_cast<int>(at - Digits) : -1;
}

// The unit written as %XX or %uXXXX at the front of the text; 0 when it is not one.
char16_t Decode(std::string_view text, std::size_t& taken) noexcept
{
    const bool wide = text.size() > 1 && text[1] == 'u';
    const std::size_t first = wide ? 2 : 1;
    const std::size_t count = wide ? 4 : 2;
    if (text.size() < first + count)
        return 0;
    unsigned value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int digit = Digit(text[first + i]);
        if (digit < 0)
            return 0;
        value = value * 16 + static_cast<unsigned>(digit);
    }
    taken = first + count;
    return static_cast<char16_t>(value);
}

} // namespace

void MakeFileName(char prefix, WStringView name, FileName& file) noexcept
{
    std::size_t length = 0;
    std::size_t cut = 1; // the longest whole-character prefix that leaves room for the check
    file.text[length++] = prefix;
    for (std::size_t i = 0; i < name.size();) {
        char bytes[6];
        std::size_t count = 0;
        i += Encode(name.substr(i), bytes, count);
        if (length + count > MaxFileName) {
            AppendHash(file.text + cut, name);
            return;
        }
        std::memcpy(file.text + length, bytes, count);
        length += count;
        if (length <= LongPrefix)
            cut = length;
    }
    file.text[length] = '\0';
}

WString NameOfFile(std::string_view file)
{
    WString name;
    file.remove_prefix(std::min<std::size_t>(1, file.size()));
    file = file.substr(0, file.find_first_of("~@"));
    while (!file.empty()) {
        const std::size_t plain = std::min(file.find('%'), file.size());
        name += Utf16FromUtf8(file.substr(0, plain));
        file.remove_prefix(plain);
        if (file.empty())
            break;
        std::size_t taken = 1;
        const char16_t unit = Decode(file, taken);
        name += unit ? unit : u'%';
        file.remove_prefix(taken);
    }
    return name;
}

bool SameName(WStringView left, WStringView right) noexcept
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char16_t a, char16_t b) { return a == b || Fold(a) == Fold(b); });
}

} // namespace vlt::posix::registry
