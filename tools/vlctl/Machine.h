// What the service and its neighbours have left on the machine: registry values, files, folders.
#pragma once

#include "platform/win32.h"

#include <optional>
#include <string>

namespace vlt::ctl
{

// A value of HKEY_LOCAL_MACHINE in the 32-bit view, where the product keeps its own. Nothing when it is
// missing, of another type or not readable.
std::optional<DWORD> MachineNumber(const WCHAR* key, const WCHAR* name);
std::optional<WString> MachineText(const WCHAR* key, const WCHAR* name);

// The suite's folder, with a backslash at its end: the scan library, its patterns and its settings. Empty
// when the machine does not say.
WString SuiteFolder();

// The folder of the service's program, with a backslash at its end: logs, quarantine, ardentis.ini. Empty
// when the service is not installed.
WString ServiceFolder();

// A text of ardentis.ini.
WString IniText(const WString& folder, const WCHAR* section, const WCHAR* name);

// The whole file; nothing when it cannot be read or is longer.
std::optional<std::string> FileBytes(const WString& path, std::size_t longest = 1 << 20);

// "2026-01-31T23:59:59Z" of seconds since 1970.
std::string UtcText(std::uint32_t seconds);

} // namespace vlt::ctl
