#include "platform/posix/service/CommandLine.h"

#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"

#include <sys/stat.h>

namespace vlt::posix::service
{
namespace
{

std::string HostPath(WStringView path)
{
    std::string text = Utf8FromUtf16(path);
    for (char& c : text)
        if (c == '\\')
            c = '/';
    if (text.size() > 2 && text[1] == ':')
        return (text[0] == 'z' || text[0] == 'Z' ? std::string() : MachineFolder("drives/c")) + text.substr(2);
    return text;
}

bool IsProgram(const std::string& path)
{
    struct stat info {
    };
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// One argument off the front.
std::string TakeArgument(WStringView& rest)
{
    WString argument;
    bool quoted = false;
    while (!rest.empty() && (quoted || (rest[0] != u' ' && rest[0] != u'\t'))) {
        const std::size_t slashes = std::min(rest.find_first_not_of(u'\\'), rest.size());
        rest.remove_prefix(slashes);
        const bool atQuote = !rest.empty() && rest[0] == u'"';
        argument.append(atQuote ? slashes / 2 : slashes, u'\\');
        if (atQuote && slashes % 2 == 0)
            quoted = !quoted;
        else if (!rest.empty() && (atQuote || quoted || (rest[0] != u' ' && rest[0] != u'\t')))
            argument += rest[0];
        else
            continue;
        rest.remove_prefix(1);
    }
    return Utf8FromUtf16(argument);
}

void SkipBlanks(WStringView& rest)
{
    rest.remove_prefix(std::min(rest.find_first_not_of(u" \t"), rest.size()));
}

} // namespace

DWORD ResolveCommandLine(WStringView commandLine, std::vector<std::string>& arguments)
{
    WStringView rest = commandLine;
    SkipBlanks(rest);
    std::string program;
    if (!rest.empty() && rest[0] == u'"') {
        const std::size_t end = std::min(rest.find(u'"', 1), rest.size());
        program = HostPath(rest.substr(1, end - 1));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    } else {
        std::size_t end = 0;
        do {
            end = std::min(rest.find(u' ', end + 1), rest.size());
            program = HostPath(rest.substr(0, end));
        } while (end < rest.size() && !IsProgram(program));
        rest.remove_prefix(end);
    }
    if (!IsProgram(program))
        return ERROR_FILE_NOT_FOUND;
    arguments = {program};
    for (SkipBlanks(rest); !rest.empty(); SkipBlanks(rest))
        arguments.push_back(TakeArgument(rest));
    return ERROR_SUCCESS;
}

} // namespace vlt::posix::service
