// Names of kernel objects that every session sees.
//
// An object name without a namespace belongs to the session of its creator. The suite's programs run in
// several sessions, so their shared names are put into the "Global\" namespace. Systems that knew no
// sessions take "\" in a name as an error; there names stay as they are.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// False for the 16/32-bit consumer family and for NT 4.0. The system of this process is asked once.
bool HasSessionNamespaces();
bool HasSessionNamespaces(DWORD platformId, DWORD majorVersion);

// The name with "Global\" before it, unless it begins so (in exactly this case: "global\" is not known
// to be the namespace and gets the prefix) or the system has no sessions. Null counts as empty.
WString MakeGlobalName(LPCWSTR name);
// The same for names that are kept in the system code page.
std::string MakeGlobalName(LPCSTR name);

// The rule on a system of the given version.
WString MakeGlobalName(LPCWSTR name, DWORD platformId, DWORD majorVersion);

// MakeGlobalName into a buffer of `capacity` characters, the terminator included; cut when it is longer.
void GetGlobalName(LPCWSTR name, LPWSTR buffer, int capacity);

} // namespace vlt
