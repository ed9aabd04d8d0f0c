// The things that the tool asks of its host and the common functions do not have.
#pragma once

#include "platform/win32.h"

namespace vlt::ctl
{

// Somebody looks at standard error.
bool ErrorsAreSeen();

// Somebody looks at standard output, on a terminal that shows colours and is not asked to leave them out
// by the environment variable NO_COLOR.
bool OutputTakesColours();

// Files and folders that this program makes from now on are not for other users. On Windows they have
// the rights of their folder.
void KeepNewFilesPrivate();

// Has the service manager start the service again, that long after each time it crashes. False where the manager
// cannot.
bool RestartAfterFailure(SC_HANDLE service, DWORD milliseconds);

} // namespace vlt::ctl
