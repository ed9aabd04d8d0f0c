// Where the command program keeps what it was told to report to the security centre.
#pragma once

#include "platform/win32.h"

namespace vlt::securitycentre
{

// Under HKEY_LOCAL_MACHINE, 32-bit view. Each value is a REG_DWORD, 1 for on and 0 for off, and is missing
// until it was reported once.
inline constexpr WCHAR kKey[] = TEXT("Software\\Veltrano\\Ardentis\\15\\SecurityCentre");
inline constexpr WCHAR kAntiVirus[] = TEXT("AntiVirus");
inline constexpr WCHAR kAntiSpyware[] = TEXT("AntiSpyware");

} // namespace vlt::securitycentre
