#include "realtime/Settings.h"

#include "ARDCommon/CipheredValue.h"
#include "ARDCommon/DebugLogPath.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/Registry.h"
#include "ARDCommon/ScanSetting.h"
#include "ARDCommon/ServiceLog.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "realtime/Detection.h"
#include "realtime/SecurityCentre.h"
#include "realtime/State.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace
{

using vlt::GetScanSetting;
using vlt::SettingId;

// What the settings say that is not in the configuration record.
struct Switches {
    bool monitor = true;
    bool spyware = false;
};

// Not a text copy: a list as long as the field leaves it without a terminator, and never reaches the
// field behind it.
void CopyExtensionList(AsConfigRecord& config, const WString& list)
{
    list.copy(config.extensionList, std::size(config.extensionList));
}

WString ExtensionList(bool allFiles, bool activeScan)
{
    if (allFiles || activeScan)
        return TEXT("*");
    WString list;
    vlt::GetScanSettingText(SettingId::FileTypeList, list);
    VLT_TRACE(40, "***  User Extension Names List: %ls", list.c_str());
    return list;
}

int GetExceptionList(const char* stem, std::vector<WString>& list)
{
    if (!vlt::RegKeyExists(HKEY_LOCAL_MACHINE, vlt::kExceptionKey))
        return 0;
    for (unsigned i = 0; i < vlt::kExceptionCount; ++i) {
        char text[vlt::kExceptionBytes] = {};
        if (!vlt::GetRegStringA(HKEY_LOCAL_MACHINE, vlt::kExceptionKey, vlt::Format("%s%u", stem, i).c_str(), "", text,
                                vlt::kExceptionBytes))
            break;
        if (text[0] != 0 && text != std::string_view(vlt::kExceptionPlaceHolder))
            list.push_back(vlt::ToWide(text));
    }
    return 1;
}

void SetExceptions(const vlt::ArdScanTable& library, AsHandle handle)
{
    library.ASSetExceptionFilePathW(handle, nullptr);
    library.ASSetExceptionFolderPathW(handle, nullptr);

    std::vector<WString> files;
    GetExceptionFileList(files);
    WString debugLog;
    if (IsDefaultDebugLogPath(&debugLog)) {
        VLT_TRACE(40, "PushBack LogPath to exception list");
        files.push_back(debugLog);
    } else {
        VLT_TRACE(40, "Not except log file");
    }
    for (const WString& file : files)
        library.ASSetExceptionFilePathW(handle, file.c_str());

    std::vector<WString> folders;
    GetExceptionFolderList(folders);
    for (const WString& folder : folders)
        library.ASSetExceptionFolderPathW(handle, folder.c_str());
}

void FillFolders(AsConfigRecord& config)
{
    WString folder;
    WString folder2nd;
    if (!vlt::GetScanSettingText(SettingId::MoveDirectory, folder))
        folder = vlt::ProgramFolder();
    if (!vlt::GetScanSettingText(SettingId::MoveDirectory2nd, folder2nd))
        folder2nd = vlt::ProgramFolder();
    vlt::CopyToField(config.moveFolder, WStringView(folder));
    vlt::CopyToField(config.moveFolder2nd, WStringView(folder2nd));
    vlt::CopyToField(config.backupFolder, WStringView(folder + TEXT("\\backup\\")));

    WString extension;
    vlt::GetScanSettingText(SettingId::RenameExt, extension);
    vlt::CopyToField(config.renameExtension, WStringView(extension));
    vlt::CopyToField(config.renameExtension2nd, WStringView(extension));
}

// The wide form of the forbid list, empty when there is no Excel: the recycle folders are guarded only
// together with Excel's.
std::vector<WCHAR> ProtectedFolders()
{
    std::string excel;
    GetXLStartFolderList("SERVICE", excel);
    VLT_TRACE(40, "strVirusForbidList length: %d", static_cast<int>(excel.size()));
    VLT_TRACE(40, "strVirusForbidList(%s)", excel.c_str());
    if (excel.empty())
        return {};
    const std::string list = MakeVirusForbidList(excel);
    // With its length given, so that the conversion goes on after the first NUL. UTF-16 never has more
    // units than the 8-bit form has bytes.
    std::vector<WCHAR> wide(list.size() + 2);
    MultiByteToWideChar(CP_ACP, 0, list.data(), static_cast<int>(list.size()), wide.data(),
                        static_cast<int>(list.size()));
    return wide;
}

bool IsMonitorWanted()
{
    DWORD wanted = 0;
    const vlt::SettingInfo& setting = vlt::Setting(SettingId::IOScanE);
    const LSTATUS status =
        GetRegIntValue(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, setting.name, setting.number, &wanted);
    if (status != ERROR_SUCCESS)
        VLT_TRACE(20, "Error: GetRegIntValue err(%x)", status);
    return wanted != 0;
}

Switches FillOptions(AsConfigRecord& config)
{
    Switches switches;
    switches.monitor = IsMonitorWanted();
    config.zipClean = GetScanSetting(SettingId::ZipClean) != 0;
    config.monitorNetwork = GetScanSetting(SettingId::MonitorNetwork);
    config.genericMacro = GetScanSetting(SettingId::GenericMacro);
    config.extractSizeLimit = GetScanSetting(SettingId::ExtractFileSizeLimit);
    config.extractCountLimit = GetScanSetting(SettingId::ExtractFileCountLimit);
    config.encodedBackup = GetScanSetting(SettingId::EncodeBackup) == 1 ? AS_ENCODED_BACKUP : 0;
    const DWORD spyware = GetScanSetting(SettingId::Spyware);
    switches.spyware = spyware != 0;
    if (spyware == 1)
        config.spywareMask = GetScanSetting(SettingId::SpyThreats);
    config.scriptTrap = GetScanSetting(SettingId::ScriptTrap);
    config.packTrap = GetScanSetting(SettingId::PackTrap);
    if (config.firstAction != AS_ACTION_CLEAN && config.activeAction == 0)
        config.cleanBackup = 0;
    return switches;
}

// The library is asked also when nobody traces: it may clear its error when it is read.
void TraceLibraryError(const vlt::ArdScanTable& library, AsHandle handle)
{
    const std::int32_t error = library.ASGetLastError(handle);
    VLT_TRACE(40, "ASGetLastError(%d)", error);
}

void SwitchMonitor(const vlt::ArdScanTable& library, AsHandle handle, bool on)
{
    if (on) {
        VLT_TRACE(40, "MonitorStart!");
        WriteServiceLog(TEXT("MonitorStart!\r\n"));
        const std::int32_t result = library.ASStartScan(handle);
        VLT_TRACE(40, "ASStartScan result = %d", result);
        TraceLibraryError(library, handle);
    } else {
        VLT_TRACE(40, "MonitorStop!");
        WriteServiceLog(TEXT("MonitorStop!\r\n"));
        const std::int32_t result = library.ASStopScan(handle, 0);
        VLT_TRACE(40, "ASStopScan result = %d", result);
    }
}

} // namespace

std::int32_t RealtimeSetting()
{
    VLT_TRACE(40, "*** <Vlntsrv> RealtimeSetting()");
    const vlt::ArdScanTable& library = vlt::ScanLibrary();
    const AsHandle handle = vlt::ScanHandle();
    AsConfigRecord config{};

    config.firstAction = GetScanSetting(SettingId::Action);
    config.secondAction = GetScanSetting(SettingId::Action2nd);
    const bool allFiles = GetScanSetting(SettingId::AllFile) != 0;
    config.activeAction = GetScanSetting(SettingId::ActiveAction);
    config.activeScan = GetScanSetting(SettingId::ActiveScan);
    CopyExtensionList(config, ExtensionList(allFiles, config.activeScan != 0));

    SetExceptions(library, handle);

    config.cleanBackup = GetScanSetting(SettingId::CleanBackup);
    config.directionMask = GetScanSetting(SettingId::InOut);
    FillFolders(config);
    const std::vector<WCHAR> protectedFolders = ProtectedFolders();
    config.protectedFolders = protectedFolders.empty() ? nullptr : protectedFolders.data();

    if (GetScanSetting(SettingId::ZipScanOnOff) != 0)
        config.zipScan = GetScanSetting(SettingId::ZipScan);
    config.fixed3964 = config.fixed3968 = config.fixed3972 = config.fixed3980 = 1;
    const Switches switches = FillOptions(config);

    config.lastScanCallback = SetLastScanInfo;
    config.detectionCallback = RealTimeScanVirusCallBack;
    config.spywareCallback = RealTimeScanVirusCallBack;

    const std::int32_t result = library.ASSetConfigW(handle, &config);
    VLT_TRACE(40, "ASSetConfigW = %d", result);
    WriteServiceLog(TEXT("ASSetConfigW = %d\r\n"), result);
    TraceLibraryError(library, handle);

    ChangeWSCStatus(switches.monitor, switches.spyware);
    SwitchMonitor(library, handle, switches.monitor);
    return result;
}

void ReportProtection()
{
    const bool spyware = GetScanSetting(SettingId::Spyware) != 0;
    ChangeWSCStatus(IsMonitorWanted(), spyware);
}

int GetExceptionFileList(std::vector<WString>& list)
{
    return GetExceptionList(vlt::kExceptionFileStem, list);
}

int GetExceptionFolderList(std::vector<WString>& list)
{
    return GetExceptionList(vlt::kExceptionFolderStem, list);
}

std::string MakeVirusForbidList(const std::string& excelFolders)
{
    std::string list;
    const auto append = [&list](std::string_view entry) {
        if (!entry.empty() && list.size() + entry.size() + 2 <= kVirusForbidListSize)
            list.append(entry).push_back('\0');
    };
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const std::string root = vlt::Format("%s:\\", std::string(1, letter));
        if (GetDriveTypeA(root.c_str()) == DRIVE_FIXED) {
            append(root + "Recycled\\");
            append(root + "Recycler\\");
        }
    }
    for (std::size_t at = 0; at < excelFolders.size();) {
        const std::size_t end = std::min(excelFolders.find('*', at), excelFolders.size());
        append(std::string_view(excelFolders).substr(at, end - at));
        at = end + 1;
    }
    list.push_back('\0');
    return list;
}
