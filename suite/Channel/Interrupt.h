// The wish of the user or the system that this program ends.
#pragma once

#include "platform/win32.h"

namespace vlt::suite
{

// A manual-reset event, set by Ctrl-C, by the closing of the console and by SIGTERM; the program may set it
// itself. From the first call on the program has two seconds to end in order.
HANDLE InterruptEvent();

} // namespace vlt::suite
