#include "tools/vlctl/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vlt::ctl
{
namespace
{

std::size_t Characters(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

} // namespace

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
