// The service's source in the application log, which gives its events their sentences in the event viewer.
#pragma once

#include "platform/win32.h"

namespace vlt::ctl
{

// Registers VLEVENT.dll of the folder (with a backslash at its end) as the source's messages; does nothing when
// the folder has none. Throws when the registry refuses.
void RegisterEventSource(const WString& folder);

// Takes the registration away, whoever made it.
void RemoveEventSource();

} // namespace vlt::ctl
