// The structured-exception guard around the service main.
#pragma once

#include "platform/win32.h"

extern "C" {

// Calls function(context) and returns 1 when it returned, 0 when a structured exception ended it;
// the exception's code is then in *code. On Windows every exception that RaiseException or the
// processor raises is handled, but not a C++ throw of the program's own; destructors of the frames
// in between do not run. Elsewhere only RaiseException's are handled and destructors run.
int VltGuardedCall(void (*function)(void* context), void* context, DWORD* code);
}
