// Registration of the service with the control manager, for the command line. Results are printed on
// the console; nothing is raised.
#pragma once

#include "platform/win32.h"

// Registers the running program. Silent when the service is installed already. Dependencies is a
// multi-string; dependencies, account and password may be null.
void InstallService(LPCWSTR name, LPCWSTR displayName, DWORD type, DWORD startType, LPCWSTR dependencies,
                    LPCWSTR account, LPCWSTR password);

// stopFirst: asks the running service to stop before; it is not waited for.
void RemoveService(LPCWSTR name, bool stopFirst);
