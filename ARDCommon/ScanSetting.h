// Readers of the on-access settings (RealTimeSettings.h) and the search for Excel's start-up folders.
#pragma once

#include "ARDCommon/RealTimeSettings.h"

#include <string>

namespace vlt
{

// The value of a Number setting, or its default when it is missing or not a REG_DWORD.
DWORD GetScanSetting(SettingId id);

// The value of a Text setting. False, with the table's default (empty when the table has none), when
// it is missing, of another type or longer than the table allows.
bool GetScanSettingText(SettingId id, WString& text);

} // namespace vlt

// Fills `folders` with the existing start-up folders of the Excel versions that are installed and used
// by the user, each followed by "*" and none twice, in the system code page. "service" (in any case)
// stands for the user named in the settings. Folders that are set but do not exist are traced and left
// out. Empty when there is no Excel.
void GetXLStartFolderList(LPCSTR user, std::string& folders);
