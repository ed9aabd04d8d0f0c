// Finding and starting programs.
#pragma once

#include "platform/posix/win32/base.h"

#include <sys/types.h>

namespace vlt::posix
{

// Starts the program of CreateProcessW: `application` as a path, or else the first of the readings of
// the command line that is a file. It inherits the standard streams and no other descriptor, an
// empty signal mask and default signal actions; `detached` gives it a session of its own. A name
// without a folder is looked for beside this program, in the current directory and along PATH; one
// without an extension also with ".exe". Returns the process id, a child to be waited for; -1 with the
// last error: 2 no such program, 193 not a program, 5 not allowed.
pid_t StartProgram(LPCWSTR application, LPCWSTR commandLine, bool detached);

// Kills and collects a child that cannot be kept.
void AbandonProgram(pid_t id) noexcept;

} // namespace vlt::posix
