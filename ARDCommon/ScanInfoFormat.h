// The last file scanned and the last detection, as the service keeps them in the registry for the suite's
// user interface and the operator's tool.
//
// Types and times are REG_DWORD, texts REG_SZ. A time is seconds since 1 January 1970 UTC, kept in 32
// bits. The time of a scan is written only when its type is not 0, so the service, which writes type 0,
// leaves what others have written; the time of a detection is written always.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// HKEY_LOCAL_MACHINE, 32-bit view.
inline constexpr const WCHAR* kScanInfoKey = TEXT("Software\\Veltrano\\Ardentis\\15\\ScanInfo");

namespace ScanInfoValue
{

inline constexpr const WCHAR* LastScanType = TEXT("LastScanType");
inline constexpr const WCHAR* LastScanTime = TEXT("LastScanTime");
inline constexpr const WCHAR* LastScanFile = TEXT("LastScanFile");
inline constexpr const WCHAR* LastDetectType = TEXT("LastDetectType");
inline constexpr const WCHAR* LastDetectTime = TEXT("LastDetectTime");
inline constexpr const WCHAR* LastDetectFile = TEXT("LastDetectFile");
inline constexpr const WCHAR* LastDetectVirus = TEXT("LastDetectVirus");

} // namespace ScanInfoValue

} // namespace vlt
