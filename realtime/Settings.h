// The on-access settings: from the registry to the scan library.
#pragma once

#include "platform/win32.h"

#include <cstdint>
#include <string>
#include <vector>

// Reads every setting, gives the library its exceptions and its configuration record, tells the
// security centre, and starts or stops monitoring. Returns the library's answer to the record. An
// unreadable value counts as its default, so nothing fails before the library is asked. Needs the
// library bound and a scan handle; the caller holds the settings lock. Waits for the security
// centre's command program.
std::int32_t RealtimeSetting();

// Tells the security centre what the settings want as they stand now. Waits for the command program.
void ReportProtection();

// Append the exceptions of the exception key in the order of their numbers (RealTimeSettings.h). 1 when
// the key opened, else 0.
int GetExceptionFileList(std::vector<WString>& list);
int GetExceptionFolderList(std::vector<WString>& list);

// The folders to which the library lets nothing harmful be written: the recycle folders of each fixed
// drive, then the folders of excelFolders (each followed by "*"). A multi-string of at most
// kVirusForbidListSize bytes in the system code page, each entry ended by a NUL, the last by two; entries
// that do not fit whole are left out.
inline constexpr std::size_t kVirusForbidListSize = 7800;
std::string MakeVirusForbidList(const std::string& excelFolders);
