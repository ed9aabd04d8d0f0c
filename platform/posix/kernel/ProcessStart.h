// Finding and starting programs.
#pragma once

#include "platform/posix/win32/base.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace vlt::posix
{

struct Program {
    std::string path;                   // host path; empty when there is no such file
    std::vector<std::string> arguments; // the first is the program's name as it was given
};

// The program of CreateProcessW: `application` as a path, or else the first of the readings of the
// command line that is a file. A name without a folder is looked for beside this program, in the
// current directory and along PATH; one without an extension also with ".exe".
Program FindProgram(LPCWSTR application, LPCWSTR commandLine);

// The last error for a program that could not be started: 193 not a program, 5 not allowed.
DWORD StartError(int error, const std::string& path) noexcept;

// Starts that program. It inherits the standard streams and no other descriptor, an empty signal mask
// and default signal actions; `detached` gives it a session of its own. Returns the process id, a
// child to be waited for; -1 with the last error: 2 no such program, or that of StartError.
pid_t StartProgram(LPCWSTR application, LPCWSTR commandLine, bool detached);

// Kills and collects a child that cannot be kept.
void AbandonProgram(pid_t id) noexcept;

} // namespace vlt::posix
