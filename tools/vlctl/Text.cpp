#include "tools/vlctl/Text.h"

#include "platform/Format.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vlt::ctl
{
namespace
{

bool IsUnsafe(WCHAR unit)
{
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || (unit >= 0x200B && unit <= 0x200F) ||
           (unit >= 0x2028 && unit <= 0x202E) || (unit >= 0x2060 && unit <= 0x206F) || unit == 0xFEFF;
}

std::size_t Characters(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

} // namespace

WString FromUtf8(const std::string& text)
{
    return ToWide(text, CP_UTF8);
}

std::string Utf8(WStringView text)
{
    return ToNarrow(text, CP_UTF8);
}

std::string Printable(WStringView text)
{
    std::string result;
    std::size_t from = 0;
    const auto flush = [&](std::size_t to) {
        if (to > from)
            result += Utf8(text.substr(from, to - from));
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;
        } else if (IsUnsafe(unit) || (unit >= 0xD800 && unit <= 0xDFFF)) {
            flush(i);
            result += Format("\\u%04x", static_cast<unsigned>(unit));
            from = i + 1;
        }
    }
    flush(text.size());
    return result;
}

std::string Table(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Characters(row[i]));
    }
    std::string result;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            result += row[i];
            if (i + 1 < row.size())
                result.append(widths[i] - Characters(row[i]) + 2, ' ');
        }
        while (!result.empty() && result.back() == ' ')
            result.pop_back();
        result += '\n';
    }
    return result;
}

void Print(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        std::_Exit(0);
}

} // namespace vlt::ctl
