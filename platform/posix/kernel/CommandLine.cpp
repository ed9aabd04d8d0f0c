#include "platform/posix/kernel/CommandLine.h"

namespace vlt::posix
{
namespace
{

bool IsBlank(char16_t unit) noexcept
{
    return unit == u' ' || unit == u'\t';
}

void SkipBlanks(std::u16string_view& text) noexcept
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
}

} // namespace

std::vector<CommandReading> ReadCommandLine(std::u16string_view commandLine)
{
    SkipBlanks(commandLine);
    std::vector<CommandReading> readings;
    if (commandLine.starts_with(u'"')) {
        commandLine.remove_prefix(1);
        const std::size_t end = std::min(commandLine.find(u'"'), commandLine.size());
        const std::size_t after = std::min(end + 1, commandLine.size());
        readings.push_back({std::u16string(commandLine.substr(0, end)), commandLine.substr(after)});
        return readings;
    }
    for (std::size_t i = 1; i <= commandLine.size(); ++i) {
        if (i == commandLine.size() || IsBlank(commandLine[i])) {
            if (!IsBlank(commandLine[i - 1]))
                readings.push_back({std::u16string(commandLine.substr(0, i)), commandLine.substr(i)});
        }
    }
    return readings;
}

std::vector<std::u16string> SplitArguments(std::u16string_view text)
{
    std::vector<std::u16string> arguments;
    for (SkipBlanks(text); !text.empty(); SkipBlanks(text)) {
        std::u16string& argument = arguments.emplace_back();
        bool grouped = false;
        while (!text.empty() && (grouped || !IsBlank(text.front()))) {
            const std::size_t backslashes = std::min(text.find_first_not_of(u'\\'), text.size());
            text.remove_prefix(backslashes);
            const bool quote = text.starts_with(u'"');
            argument.append(quote ? backslashes / 2 : backslashes, u'\\');
            if (text.empty() || (!quote && !grouped && IsBlank(text.front())))
                break;
            if (quote && backslashes % 2 == 0) {
                const bool doubled = grouped && text.size() > 1 && text[1] == u'"';
                if (doubled)
                    argument += u'"';
                else
                    grouped = !grouped;
                text.remove_prefix(doubled ? 2 : 1);
                continue;
            }
            argument += text.front();
            text.remove_prefix(1);
        }
    }
    return arguments;
}

} // namespace vlt::posix
