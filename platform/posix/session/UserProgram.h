// Starting a program for a user.
#pragma once

#include "platform/posix/kernel/ProcessStart.h"
#include "platform/posix/session/TokenObject.h"

namespace vlt::posix
{

// Starts it as CreateProcessAsUserW promises. The environment is a list of "NAME=value". Returns the
// process id, a child to be waited for; -1 with the last error.
pid_t StartForUser(const TokenObject& token, Program program, std::vector<std::string> environment);

} // namespace vlt::posix
