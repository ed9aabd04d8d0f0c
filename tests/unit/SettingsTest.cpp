// The settings from the registry to the calls that reach the scan library.
#include "realtime/Settings.h"
#include "ARDCommon/CipheredValue.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/Registry.h"
#include "ARDCommon/ScanSetting.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/Detection.h"
#include "realtime/State.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace
{

using vlt::SettingId;

const HKEY kRoot = HKEY_LOCAL_MACHINE;
constexpr WCHAR kProductKey[] = TEXT("Software\\Veltrano\\Ardentis\\15");

// What the library was asked, in order, and the record it got.
struct Library {
    std::vector<std::string> calls;
    AsConfigRecord config{};
    WString protectedFolders; // with its NULs
};
Library g_library;

std::string PathCall(const char* call, const WCHAR* path)
{
    return std::string(call) + (path != nullptr ? " " + vlt::ToNarrow(path) : " (null)");
}

std::int32_t WINAPI LastError(AsHandle)
{
    g_library.calls.push_back("error");
    return 0;
}
std::int32_t WINAPI SetConfig(AsHandle handle, const void* config)
{
    EXPECT_EQ(handle, &g_library);
    g_library.calls.push_back("config");
    std::memcpy(&g_library.config, config, sizeof(AsConfigRecord));
    g_library.protectedFolders.clear();
    if (const WCHAR* text = g_library.config.protectedFolders) {
        const WCHAR* end = text;
        while (*end != 0)
            end += lstrlenW(end) + 1;
        g_library.protectedFolders.assign(text, end);
    }
    return 77;
}
std::int32_t WINAPI StartScan(AsHandle)
{
    g_library.calls.push_back("start");
    return 1;
}
std::int32_t WINAPI StopScan(AsHandle, std::uint32_t zero)
{
    g_library.calls.push_back("stop " + std::to_string(zero));
    return 1;
}
std::int32_t WINAPI SetFile(AsHandle, const WCHAR* path)
{
    g_library.calls.push_back(PathCall("file", path));
    return 1;
}
std::int32_t WINAPI SetFolder(AsHandle, const WCHAR* path)
{
    g_library.calls.push_back(PathCall("folder", path));
    return 1;
}
class Settings : public testing::Test
{
protected:
    void SetUp() override
    {
        Clean();
        g_library = Library();
        vlt::ArdScanTable& table = vlt::Realtime().scanTable;
        table.ASGetLastError = LastError;
        table.ASSetConfigW = SetConfig;
        table.ASStartScan = StartScan;
        table.ASStopScan = StopScan;
        table.ASSetExceptionFilePathW = SetFile;
        table.ASSetExceptionFolderPathW = SetFolder;
        vlt::Realtime().scanHandle = &g_library;
    }
    void TearDown() override { Clean(); }

    static void Clean()
    {
        vlt::DeleteRegKey(kRoot, kProductKey, TEXT("RealTimeScan"));
        vlt::DeleteRegKey(kRoot, kProductKey, TEXT("Exception"));
        vlt::DeleteRegKey(kRoot, TEXT("SOFTWARE\\Microsoft\\Office\\11.0\\Excel"), TEXT("InstallRoot"));
        DeleteFileW((vlt::ProgramFolder() + TEXT("ardentis.ini")).c_str());
        DeleteFileW((vlt::ProgramFolder() + TEXT("Log\\ard.log")).c_str());
    }

    static void Set(SettingId id, DWORD value)
    {
        ASSERT_TRUE(vlt::SetRegDword(kRoot, vlt::kRealTimeScanKey, vlt::Setting(id).name, value));
    }
    static void Set(SettingId id, const WString& value)
    {
        ASSERT_TRUE(vlt::SetRegString(kRoot, vlt::kRealTimeScanKey, vlt::Setting(id).name, value.c_str()));
    }
    static void SetException(const WCHAR* name, const WString& value)
    {
        ASSERT_TRUE(vlt::SetRegString(kRoot, vlt::kExceptionKey, name, value.c_str()));
    }

    static const AsConfigRecord& Apply()
    {
        g_library.calls.clear();
        EXPECT_EQ(RealtimeSetting(), 77);
        return g_library.config;
    }
};

// The numbers that reach the record as they stand in the registry, with the field's content when
// they do not stand there.
constexpr struct {
    SettingId id;
    std::uint32_t AsConfigRecord::*field;
    std::uint32_t fallback;
} kNumbers[] = {
    {SettingId::Action, &AsConfigRecord::firstAction, 3},
    {SettingId::Action2nd, &AsConfigRecord::secondAction, 2},
    {SettingId::ActiveAction, &AsConfigRecord::activeAction, 1},
    {SettingId::ActiveScan, &AsConfigRecord::activeScan, 1},
    {SettingId::CleanBackup, &AsConfigRecord::cleanBackup, 1},
    {SettingId::InOut, &AsConfigRecord::directionMask, 15},
    {SettingId::ZipScan, &AsConfigRecord::zipScan, 0},
    {SettingId::ZipClean, &AsConfigRecord::zipClean, 0},
    {SettingId::MonitorNetwork, &AsConfigRecord::monitorNetwork, 1},
    {SettingId::GenericMacro, &AsConfigRecord::genericMacro, 1},
    {SettingId::ExtractFileSizeLimit, &AsConfigRecord::extractSizeLimit, 0xFFFFFFFF},
    {SettingId::ExtractFileCountLimit, &AsConfigRecord::extractCountLimit, 0},
    {SettingId::EncodeBackup, &AsConfigRecord::encodedBackup, 6},
    {SettingId::SpyThreats, &AsConfigRecord::spywareMask, 0},
    {SettingId::ScriptTrap, &AsConfigRecord::scriptTrap, 1},
    {SettingId::PackTrap, &AsConfigRecord::packTrap, 1},
};

void ExpectTexts(const AsConfigRecord& config, const WString& folder, const WString& folder2nd,
                 const WString& extension)
{
    EXPECT_EQ(WString(config.moveFolder), folder);
    EXPECT_EQ(WString(config.moveFolder2nd), folder2nd);
    EXPECT_EQ(WString(config.backupFolder), folder + TEXT("\\backup\\"));
    EXPECT_EQ(WString(config.renameExtension), extension);
    EXPECT_EQ(WString(config.renameExtension2nd), extension);
}

TEST_F(Settings, DefaultsFillTheRecord)
{
    const AsConfigRecord& config = Apply();
    for (const auto& number : kNumbers)
        EXPECT_EQ(config.*number.field, number.fallback) << vlt::ToNarrow(vlt::Setting(number.id).name);
    ExpectTexts(config, vlt::ProgramFolder(), vlt::ProgramFolder(), TEXT(".VIR"));
    EXPECT_EQ(WString(config.extensionList), TEXT("*"));
    EXPECT_EQ(config.protectedFolders, nullptr) << "no Excel: not even the recycle folders";
    EXPECT_TRUE(config.fixed3964 == 1 && config.fixed3968 == 1 && config.fixed3972 == 1 && config.fixed3980 == 1);
    EXPECT_EQ(config.lastScanCallback, nullptr);
    EXPECT_EQ(config.detectionCallback, &RealTimeScanVirusCallBack);
    EXPECT_EQ(config.spywareCallback, &RealTimeScanVirusCallBack);
    EXPECT_TRUE(config.detectionContext == nullptr && config.spywareContext == nullptr);
}

TEST_F(Settings, EachValueReachesItsOwnField)
{
    DWORD value = 1000;
    for (const auto& number : kNumbers)
        Set(number.id, value++);
    Set(SettingId::ZipScanOnOff, 2);
    Set(SettingId::Spyware, 1);
    Set(SettingId::MoveDirectory, TEXT("D:\\first\\"));
    Set(SettingId::MoveDirectory2nd, TEXT("D:\\second"));
    Set(SettingId::RenameExt, TEXT(".X"));

    const AsConfigRecord& config = Apply();
    value = 1000;
    for (const auto& number : kNumbers) {
        const DWORD expected = number.id == SettingId::ZipClean ? 1 : number.id == SettingId::EncodeBackup ? 0 : value;
        EXPECT_EQ(config.*number.field, expected) << vlt::ToNarrow(vlt::Setting(number.id).name);
        ++value;
    }
    ExpectTexts(config, TEXT("D:\\first\\"), TEXT("D:\\second"), TEXT(".X"));
}

TEST_F(Settings, DerivedFields)
{
    Set(SettingId::EncodeBackup, 2);
    Set(SettingId::Spyware, 2);
    Set(SettingId::SpyThreats, 4);
    Set(SettingId::ZipScan, 3);
    Set(SettingId::ActiveAction, 0);
    EXPECT_EQ(Apply().encodedBackup, 0u);
    EXPECT_EQ(g_library.config.spywareMask, 0u);
    EXPECT_EQ(g_library.config.zipScan, 0u) << "the master switch is off";
    EXPECT_EQ(g_library.config.cleanBackup, 1u) << "action 3 keeps it";
    Set(SettingId::Action, 5);
    EXPECT_EQ(Apply().cleanBackup, 0u);
    Set(SettingId::ActiveAction, 2);
    EXPECT_EQ(Apply().cleanBackup, 1u);
}

TEST_F(Settings, TextsAtTheirBounds)
{
    Set(SettingId::MoveDirectory, WString(259, TEXT('m')));
    Set(SettingId::MoveDirectory2nd, WString(260, TEXT('m')));
    Set(SettingId::RenameExt, WString(260, TEXT('r')));
    const AsConfigRecord& config = Apply();
    EXPECT_EQ(WString(config.moveFolder), WString(259, TEXT('m')));
    EXPECT_EQ(WString(config.backupFolder), WString(259, TEXT('m'))) << "cut to its field";
    EXPECT_EQ(WString(config.moveFolder2nd), vlt::ProgramFolder());
    EXPECT_EQ(WString(config.renameExtension), TEXT(".VIR"));
    Set(SettingId::MoveDirectory, TEXT(""));
    EXPECT_EQ(WString(Apply().backupFolder), TEXT("\\backup\\")) << "an empty folder was read";
}

TEST_F(Settings, ExtensionList)
{
    const WString list = TEXT(".EXE.COM");
    Set(SettingId::FileTypeList, list);
    Set(SettingId::ActiveScan, 0);
    EXPECT_EQ(WString(Apply().extensionList), list);
    Set(SettingId::AllFile, 2);
    EXPECT_EQ(WString(Apply().extensionList), TEXT("*"));
    Set(SettingId::AllFile, 0);

    for (const std::size_t length : {647u, 648u, 649u, 768u}) {
        Set(SettingId::FileTypeList, WString(length, TEXT('e')));
        const AsConfigRecord& config = Apply();
        const WString field(config.extensionList, std::size(config.extensionList));
        EXPECT_EQ(field, WString(std::min<std::size_t>(length, 648), TEXT('e')) + WString(length < 648 ? 1 : 0, 0));
        EXPECT_EQ(config.fixed3964, 1u);
    }
    Set(SettingId::FileTypeList, WString(769, TEXT('e')));
    EXPECT_EQ(WString(Apply().extensionList), TEXT("")) << "too long counts as missing";
}

TEST_F(Settings, ExceptionsEndAtTheFirstMissingNumber)
{
    std::vector<WString> files{TEXT("kept")};
    EXPECT_EQ(GetExceptionFileList(files), 0) << "no key";
    SetException(TEXT("File1"), TEXT("C:\\b"));
    SetException(TEXT("Folder0"), TEXT("none"));
    SetException(TEXT("Folder1"), TEXT(""));
    SetException(TEXT("Folder2"), TEXT("None"));
    SetException(TEXT("Folder3"), WString(255, TEXT('x')));
    SetException(TEXT("Folder4"), WString(256, TEXT('x')));
    SetException(TEXT("Folder5"), TEXT("C:\\unreached"));
    Apply();
    const std::vector<std::string> calls = {
        "file (null)", "folder (null)", "folder None", "folder " + std::string(255, 'x'),
        "config",      "error",         "start",       "error",
    };
    EXPECT_EQ(g_library.calls, calls);

    SetException(TEXT("File0"), TEXT("C:\\a"));
    for (int i = 2; i <= 101; ++i)
        SetException(vlt::Format(TEXT("File%d"), i).c_str(), TEXT("C:\\f"));
    EXPECT_EQ(GetExceptionFileList(files), 1);
    ASSERT_EQ(files.size(), 101u);
    EXPECT_EQ(files[0], TEXT("kept"));
    EXPECT_EQ(files[1], TEXT("C:\\a"));
    EXPECT_EQ(files[2], TEXT("C:\\b"));
}

TEST_F(Settings, DebugLogInItsUsualPlaceIsAnException)
{
    const WString ini = vlt::ProgramFolder() + TEXT("ardentis.ini");
    const WString log = vlt::ProgramFolder() + TEXT("Log\\ard.log");
    CreateDirectoryW((vlt::ProgramFolder() + TEXT("Log")).c_str(), nullptr);
    ASSERT_TRUE(vlt::FileHandle(CreateFileW(log.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr)));
    ASSERT_TRUE(WritePrivateProfileStringW(TEXT("debug"), TEXT("log_path"), log.c_str(), ini.c_str()));
    SetException(TEXT("File0"), TEXT("C:\\first"));
    Apply();
    ASSERT_GE(g_library.calls.size(), 4u);
    EXPECT_EQ(g_library.calls[2], "file C:\\first");
    EXPECT_EQ(g_library.calls[3].substr(0, 5), "file ");
    EXPECT_NE(GetFileAttributesA(g_library.calls[3].substr(5).c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(Settings, MonitoringIsOnUnlessValidlySwitchedOff)
{
    const std::vector<std::string> on = {"file (null)", "folder (null)", "config", "error", "start", "error"};
    const std::vector<std::string> off = {"file (null)", "folder (null)", "config", "error", "stop 0"};
    const WCHAR* name = vlt::Setting(SettingId::IOScanE).name;
    SetRegIntValue(kRoot, vlt::kRealTimeScanKey, name, 0);
    Apply();
    EXPECT_EQ(g_library.calls, off);
    SetRegIntValue(kRoot, vlt::kRealTimeScanKey, name, 2);
    Apply();
    EXPECT_EQ(g_library.calls, on);
    Set(SettingId::IOScanE, DWORD{0}); // a plain number in its place
    Apply();
    EXPECT_EQ(g_library.calls, on);
}

TEST_F(Settings, TraceOfAnApplication)
{
    SetRegIntValue(kRoot, vlt::kRealTimeScanKey, TEXT("IOScanE"), 0);
    Set(SettingId::FileTypeList, TEXT(".A%s"));
    Set(SettingId::ActiveScan, 0);
    Set(SettingId::UserName, TEXT("nobody"));
    std::vector<std::string> lines = vlt::test::Traced([] { RealtimeSetting(); });
    // The reason depends on the host: the log file that the trace would have does not exist.
    std::erase_if(lines, [](const std::string& line) { return line.find("DebugLogPath.cpp") != std::string::npos; });
    const std::vector<std::string> off = {
        "40 Settings.cpp: *** <Vlntsrv> RealtimeSetting()",
        "40 Settings.cpp: ***  User Extension Names List: .A%s",
        "40 Settings.cpp: Not except log file",
        "50 ScanSetting.cpp: ***  Entered GetXLStartFolderList()",
        "40 ScanSetting.cpp: ***   Got user name from registry: nobody",
        "40 Settings.cpp: strVirusForbidList length: 0",
        "40 Settings.cpp: strVirusForbidList()",
        "40 Settings.cpp: ASSetConfigW = 77",
        "40 Settings.cpp: ASGetLastError(0)",
        "40 SecurityCentre.cpp: ChangeWSCStatus(0, 0)",
        "20 SecurityCentre.cpp: VlUtil::SyncExecuteProcess() failed",
        "40 Settings.cpp: MonitorStop!",
        "40 Settings.cpp: ASStopScan result = 1",
    };
    EXPECT_EQ(lines, off);

    ASSERT_TRUE(vlt::DeleteRegValue(kRoot, vlt::kRealTimeScanKey, TEXT("IOScanE")));
    lines = vlt::test::Traced([] { RealtimeSetting(); });
    const auto has = [&](const char* line) { return std::count(lines.begin(), lines.end(), line); };
    EXPECT_EQ(has("20 Settings.cpp: Error: GetRegIntValue err(2)"), 1);
    EXPECT_EQ(has("40 Settings.cpp: ASGetLastError(0)"), 2);
    const std::vector<std::string> on(lines.end() - 3, lines.end());
    EXPECT_EQ(on, (std::vector<std::string>{"40 Settings.cpp: MonitorStart!", "40 Settings.cpp: ASStartScan result = 1",
                                            "40 Settings.cpp: ASGetLastError(0)"}));
}

TEST_F(Settings, ExcelFoldersBringTheRecycleFoldersWithThem)
{
    const vlt::test::TempFolder office;
    const WCHAR* key = TEXT("SOFTWARE\\Microsoft\\Office\\11.0\\Excel\\InstallRoot");
    ASSERT_TRUE(vlt::SetRegString(kRoot, key, TEXT("path"), office.PathW().c_str()));
    EXPECT_EQ(Apply().protectedFolders, nullptr) << "the folder does not exist";

    const WString folder = office.PathW("XLStart");
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    std::string list;
    GetXLStartFolderList("service", list);
    EXPECT_EQ(list, vlt::ToNarrow(folder) + "\\*");
    EXPECT_NE(Apply().protectedFolders, nullptr);
    const WString nul(1, 0);
    const WString& folders = g_library.protectedFolders;
    EXPECT_NE(folders.find(TEXT("C:\\Recycled\\") + nul + TEXT("C:\\Recycler\\") + nul), WString::npos);
    EXPECT_TRUE(folders.ends_with(nul + folder + TEXT("\\") + nul));
}

TEST_F(Settings, ForbidListKeepsWholeEntriesWithinItsSize)
{
    std::string excel;
    for (int i = 0; i < 100; ++i)
        excel += "C:\\" + std::string(100, static_cast<char>('a' + i % 26)) + "\\*";
    const std::string list = MakeVirusForbidList(excel + "**");
    EXPECT_LE(list.size(), kVirusForbidListSize);
    EXPECT_GT(list.size(), kVirusForbidListSize - 110);
    EXPECT_TRUE(list.ends_with(std::string("\\\0\0", 3)));
    EXPECT_EQ(list.find(std::string(2, '\0')), list.size() - 2) << "an empty entry would end the list";
    EXPECT_EQ(list.find('*'), std::string::npos);
}

} // namespace
