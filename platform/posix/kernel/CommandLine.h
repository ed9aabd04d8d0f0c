// From a Windows command line to a program and its arguments.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vlt::posix
{

// One way to read a command line: the program's name, and where its arguments begin.
struct CommandReading {
    std::u16string program;
    std::u16string_view rest;
};

// A quoted program has one reading. An unquoted one with blanks has one for each blank, the shortest
// first: `a b c` is the program `a`, or `a b`, or `a b c`.
std::vector<CommandReading> ReadCommandLine(std::u16string_view commandLine);

// The arguments by the C runtime's rules: blanks separate; quotes group; 2n backslashes before a
// quote are n and the quote groups, 2n + 1 are n and the quote is literal; two quotes in a group are one.
std::vector<std::u16string> SplitArguments(std::u16string_view text);

} // namespace vlt::posix
