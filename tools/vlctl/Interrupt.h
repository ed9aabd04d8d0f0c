// The wish of the user or the system that this program ends.
#pragma once

#include "platform/win32.h"

namespace vlt::ctl
{

// A manual-reset event, set by Ctrl-C, by the closing of the console and by SIGTERM; commands may set it
// themselves. From the first call on the program has two seconds to end in order.
HANDLE InterruptEvent();

} // namespace vlt::ctl
