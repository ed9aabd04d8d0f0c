// The service as the control manager knows it.
#pragma once

#include "platform/Unique.h"

namespace vlt::ctl
{

// All throw CommandError; ExitNoService when the service is not installed or the manager cannot be reached.
ServiceHandle OpenServiceManager(DWORD access);
ServiceHandle OpenInstalledService(DWORD access);
SERVICE_STATUS_PROCESS QueryService(const ServiceHandle& service);

// Whether the service is registered. Throws CommandError when nobody can say.
bool IsServiceInstalled();

// "running"; "unknown" for a state that has no name.
const char* ServiceStateName(DWORD state);

} // namespace vlt::ctl
