// The process's command line as one text, quoted so that it splits into the same arguments again.
#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/system.h"

#include <fstream>
#include <iterator>
#include <string>

namespace
{

void AppendQuoted(std::u16string& line, const std::u16string& argument)
{
    if (!argument.empty() && argument.find_first_of(u" \t\"") == std::u16string::npos) {
        line += argument;
        return;
    }
    line += u'"';
    std::size_t backslashes = 0;
    for (const char16_t unit : argument) {
        if (unit == u'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes count only in front of a quotation mark.
        line.append(unit == u'"' ? 2 * backslashes + 1 : backslashes, u'\\');
        backslashes = 0;
        line += unit;
    }
    line.append(2 * backslashes, u'\\');
    line += u'"';
}

std::u16string ReadCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string raw{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::u16string line;
    for (std::size_t at = 0; at < raw.size();) {
        const std::size_t end = raw.find('\0', at);
        if (at != 0)
            line += u' ';
        AppendQuoted(line, vlt::posix::Utf16FromUtf8(std::string_view(raw).substr(at, end - at)));
        at = end == std::string::npos ? raw.size() : end + 1;
    }
    return line;
}

} // namespace

LPWSTR GetCommandLineW()
{
    // The one copy of the process, which callers may change.
    static std::u16string& line = *new std::u16string(ReadCommandLine());
    return line.data();
}
