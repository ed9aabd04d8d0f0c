// From the registry to the scan library: the configuration record field by field, the exception lists
// and the monitoring switch.
#include "ARDCommon/CipheredValueFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "tests/service/Lives.h"

#include <cstring>
#include <functional>

using namespace vlt::test;

namespace
{

void Copy(WCHAR (&field)[260], const WString& text)
{
    vlt::CopyToField(field, WStringView(text));
}

// What a machine without any setting gives.
AsConfigRecord DefaultConfig(const Installation& service)
{
    AsConfigRecord config{};
    config.firstAction = 3;
    config.secondAction = 2;
    Copy(config.moveFolder, service.Folder());
    Copy(config.moveFolder2nd, service.Folder());
    Copy(config.backupFolder, service.Folder() + TEXT("\\backup\\"));
    Copy(config.renameExtension, TEXT(".VIR"));
    Copy(config.renameExtension2nd, TEXT(".VIR"));
    config.cleanBackup = config.genericMacro = config.activeAction = config.activeScan = 1;
    config.scriptTrap = config.packTrap = config.monitorNetwork = 1;
    config.fixed3964 = config.fixed3968 = config.fixed3972 = config.fixed3980 = 1;
    config.extractSizeLimit = 0xFFFFFFFF;
    config.encodedBackup = 6;
    config.directionMask = 15;
    config.extensionList[0] = '*';
    return config;
}

// The record of the only ASSetConfigW call, its callbacks checked and cleared.
AsConfigRecord ConfigOf(const Installation& service)
{
    AsConfigRecord config{};
    const std::vector<Record> calls = service.Calls("ASSetConfigW");
    EXPECT_EQ(calls.size(), 1u);
    const std::string text = calls.empty() ? "" : calls[0]["record"];
    EXPECT_EQ(text.size(), 2 * sizeof config);
    auto* bytes = reinterpret_cast<unsigned char*>(&config);
    for (std::size_t i = 0; 2 * i + 1 < text.size(); ++i)
        bytes[i] = static_cast<unsigned char>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    EXPECT_TRUE(config.detectionCallback != nullptr && config.lastScanCallback != nullptr);
    config.lastScanCallback = nullptr;
    EXPECT_TRUE(config.spywareCallback == config.detectionCallback);
    config.detectionCallback = config.spywareCallback = nullptr;
    return config;
}

// Names the first byte that differs.
testing::AssertionResult Same(const AsConfigRecord& actual, const AsConfigRecord& expected)
{
    const auto* left = reinterpret_cast<const unsigned char*>(&actual);
    const auto* right = reinterpret_cast<const unsigned char*>(&expected);
    for (std::size_t i = 0; i < sizeof actual; ++i) {
        if (left[i] != right[i])
            return testing::AssertionFailure() << "offset " << i << ": " << +left[i] << " not " << +right[i];
    }
    return testing::AssertionSuccess();
}

std::string Utf16(const WString& text)
{
    return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

const std::string kWideNumber("\1\0\0\0\0\0\0\0", 8);

} // namespace

TEST(ServiceSettings, EachValueReachesItsField)
{
    const std::string longText(259, 'f');
    struct Case {
        const char* name;
        std::function<void(Installation&)> set;
        std::function<void(AsConfigRecord&, const Installation&)> expect;
    };
    const Case cases[] = {
        {"defaults", [](Installation&) {}, [](AsConfigRecord&, const Installation&) {}},
        {"every value",
         [](Installation& s) {
             const std::pair<const char*, DWORD> numbers[] = {
                 {"Action", 7},         {"Action2nd", 5},    {"PattnExt", 9},
                 {"ActiveAction", 3},   {"CleanBackup", 4},  {"InOut", 0xFFFFFFFF},
                 {"ZipScanOnOff", 2},   {"ZipScan", 3},      {"ZipClean", 9},
                 {"MonitorNetwork", 0}, {"GenericMacro", 6}, {"ExtractFileSizeLimit", 10},
                 {"EncodeBackup", 2},   {"Spyware", 1},      {"ExtractFileCountLimit", 11},
                 {"SpyThreats", 64},    {"ScriptTrap", 12},  {"PackTrap", 13},
                 {"ActiveScan", 0},     {"AllFile", 0}};
             for (const auto& [name, number] : numbers)
                 s.Set(name, number);
             s.Set("FileTypeList", ".EXE.COM");
             s.Set("MoveDirectory", "D:\\m\xC3\xA9");
             s.Set("MoveDirectory2nd", "D:\\m2\\");
             s.Set("RenameExt", ".x");
         },
         [](AsConfigRecord& c, const Installation&) {
             c.firstAction = 7;
             c.secondAction = 5;
             c.activeAction = 3;
             c.activeScan = 0;
             c.cleanBackup = 4;
             c.directionMask = 0xFFFFFFFF;
             c.zipScan = 3;
             c.zipClean = 1;
             c.monitorNetwork = 0;
             c.genericMacro = 6;
             c.extractSizeLimit = 10;
             c.extractCountLimit = 11;
             c.encodedBackup = 0;
             c.spywareMask = 64;
             c.scriptTrap = 12;
             c.packTrap = 13;
             std::memcpy(c.extensionList, TEXT(".EXE.COM"), 18);
             Copy(c.moveFolder, TEXT("D:\\m\x00E9"));
             Copy(c.backupFolder, TEXT("D:\\m\x00E9\\backup\\"));
             Copy(c.moveFolder2nd, TEXT("D:\\m2\\"));
             Copy(c.renameExtension, TEXT(".x"));
             Copy(c.renameExtension2nd, TEXT(".x"));
         }},
        {"wrong types and sizes",
         [](Installation& s) {
             s.Set("Action", "1");
             s.SetBytes(kScanKey, "Action2nd", REG_QWORD, kWideNumber);
             s.SetBytes(kScanKey, "InOut", REG_DWORD, "\1");
             s.SetBytes(kScanKey, "ExtractFileSizeLimit", REG_DWORD, kWideNumber);
             s.SetBytes(kScanKey, "CleanBackup", REG_BINARY, std::string(4, '\0'));
             s.SetBytes(kScanKey, "RenameExt", REG_BINARY, Utf16(TEXT(".y")));
             s.SetBytes(kScanKey, "MoveDirectory", REG_DWORD, std::string("\1\0\0\0", 4));
         },
         [](AsConfigRecord&, const Installation&) {}},
        {"texts at and over their bounds",
         [&](Installation& s) {
             s.Set("MoveDirectory", longText);
             s.Set("MoveDirectory2nd", longText + "f");
             s.Set("RenameExt", longText + "f");
         },
         [&](AsConfigRecord& c, const Installation&) {
             Copy(c.moveFolder, vlt::ToWide(longText));
             Copy(c.backupFolder, vlt::ToWide(longText));
         }},
        {"extension list of 648 and more",
         [](Installation& s) {
             s.Set("ActiveScan", 0);
             s.Set("FileTypeList", std::string(768, 'e'));
         },
         [](AsConfigRecord& c, const Installation&) {
             c.activeScan = 0;
             std::fill(std::begin(c.extensionList), std::end(c.extensionList), WCHAR('e'));
         }},
        {"extension list too long to be read",
         [](Installation& s) {
             s.Set("ActiveScan", 0);
             s.Set("FileTypeList", std::string(769, 'e'));
         },
         [](AsConfigRecord& c, const Installation&) {
             c.activeScan = 0;
             c.extensionList[0] = 0;
         }},
        {"all files over the own list",
         [](Installation& s) {
             s.Set("ActiveScan", 0);
             s.Set("AllFile", 5);
             s.Set("FileTypeList", ".EXE");
         },
         [](AsConfigRecord& c, const Installation&) { c.activeScan = 0; }},
        {"backup kept by action 3", [](Installation& s) { s.Set("ActiveAction", 0); },
         [](AsConfigRecord& c, const Installation&) { c.activeAction = 0; }},
        {"backup cleared, spyware 2, archives off",
         [](Installation& s) {
             s.Set("Action", 2);
             s.Set("ActiveAction", 0);
             s.Set("Spyware", 2);
             s.Set("ZipScan", 1);
         },
         [](AsConfigRecord& c, const Installation&) {
             c.firstAction = 2;
             c.activeAction = 0;
             c.cleanBackup = 0;
         }},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service;
        each.set(service);
        ASSERT_TRUE(service.Live());
        AsConfigRecord expected = DefaultConfig(service);
        each.expect(expected, service);
        EXPECT_TRUE(Same(ConfigOf(service), expected));
        const bool spyware = each.name == std::string("every value") || expected.firstAction == 2;
        EXPECT_TRUE(Holds(service.Transcript(), {spyware ? "run /WSCAntiSpywareOn" : "run /WSCAntiSpywareOff",
                                                 "ASStartScan", "run /WSCAntiSpywareOff"}));
    }
}

TEST(ServiceSettings, ExceptionListsEndAtTheFirstGap)
{
    using Values = std::vector<std::pair<std::string, std::string>>;
    const struct {
        const char* name;
        Values values;
        Lines files, folders;
    } cases[] = {
        {"place holders are skipped",
         {{"File0", "C:\\a"},
          {"File1", "none"},
          {"File2", ""},
          {"File3", "None"},
          {"File5", "C:\\b"},
          {"Folder0", "C:\\f\xC3\xA9"}},
         {"C:\\a", "None"},
         {"C:\\f\xC3\xA9"}},
        {"first one missing", {{"File1", "C:\\a"}, {"Folder1", "C:\\f"}}, {}, {}},
        {"one that is too long",
         {{"File0", "C:\\a"}, {"File1", std::string(256, 'x')}, {"File2", "C:\\b"}},
         {"C:\\a"},
         {}},
        {"the longest one",
         {{"File0", std::string(255, 'x')}, {"File1", "C:\\b"}},
         {std::string(255, 'x'), "C:\\b"},
         {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service;
        for (const auto& [name, path] : each.values)
            service.SetException(name, path);
        ASSERT_TRUE(service.Live());
        Lines expected{"ASSetExceptionFilePathW path=null", "ASSetExceptionFolderPathW path=null"};
        for (const std::string& file : each.files)
            expected.push_back("ASSetExceptionFilePathW path=" + file);
        for (const std::string& folder : each.folders)
            expected.push_back("ASSetExceptionFolderPathW path=" + folder);
        Lines actual = service.Transcript("ArdScan");
        std::erase_if(actual, [](const std::string& line) { return line.find("ASSetException") == std::string::npos; });
        EXPECT_TRUE(Matches(actual, expected));
    }
    Installation service;
    service.SetException("File0", "C:\\a");
    service.SetBytes(kExceptionKey, "File1", REG_DWORD, std::string("\1\0\0\0", 4));
    service.SetException("File2", "C:\\b");
    ASSERT_TRUE(service.Live());
    EXPECT_EQ(service.Calls("ASSetExceptionFilePathW").size(), 2u);
}

TEST(ServiceSettings, TheMonitoringSwitchIsOnUnlessValidlyOff)
{
    const auto ciphered = [](std::uint32_t value, std::uint32_t salt) {
        const vlt::CipheredBytes bytes = vlt::EncodeCipheredValue(value, salt);
        return std::string(bytes.begin(), bytes.end());
    };
    const struct {
        const char* name;
        DWORD type;
        std::string bytes;
        bool on;
        const char* error;
    } cases[] = {
        {"off", REG_BINARY, ciphered(0, 0x12345678), false, ""},
        {"on", REG_BINARY, ciphered(5, 0), true, ""},
        {"too short", REG_BINARY, ciphered(0, 1).substr(0, 7), true, "d"},
        {"too long", REG_BINARY, ciphered(0, 1) + "x", true, "d"},
        {"a plain number", REG_DWORD, std::string(4, '\0'), true, "d"},
        {"right bytes, wrong type", REG_QWORD, ciphered(0, 1), true, "d"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service;
        service.Set("Spyware", 1);
        service.SetBytes(kScanKey, "IOScanE", each.type, each.bytes);
        ASSERT_TRUE(service.Live());
        Lines lines = service.Transcript();
        const std::string error = "20 .\\Settings.cpp Error: GetRegIntValue err(";
        EXPECT_EQ(std::count(lines.begin(), lines.end(), error + each.error + ")"), *each.error != 0);
        EXPECT_EQ(static_cast<bool>(Holds(lines, {error + "*"})), *each.error != 0);
        const auto from = std::find(lines.begin(), lines.end(), "40 .\\Settings.cpp ASSetConfigW = 1");
        const auto to = std::find(lines.begin(), lines.end(), "40 .\\crealscan.cpp end of CRealScan::Init()");
        ASSERT_TRUE(from < to);
        lines = Lines(from + 1, to);
        const std::string done = "40 .\\SecurityCentre.cpp Executed WSC ";
        const Lines on{"ASGetLastError",
                       "40 .\\Settings.cpp ASGetLastError(0)",
                       "40 .\\SecurityCentre.cpp ChangeWSCStatus(1, 1)",
                       "run /WSCAntiVirusOn",
                       done + "virus registration process",
                       "run /WSCAntiSpywareOn",
                       done + "spyware registration process",
                       "40 .\\Settings.cpp MonitorStart!",
                       "ASStartScan",
                       "40 .\\Settings.cpp ASStartScan result = 1",
                       "ASGetLastError",
                       "40 .\\Settings.cpp ASGetLastError(0)"};
        const Lines off{"ASGetLastError",
                        "40 .\\Settings.cpp ASGetLastError(0)",
                        "40 .\\SecurityCentre.cpp ChangeWSCStatus(0, 1)",
                        "run /WSCAntiVirusOff",
                        done + "virus registration process",
                        "run /WSCAntiSpywareOff",
                        done + "spyware registration process",
                        "40 .\\Settings.cpp MonitorStop!",
                        "ASStopScan zero=0",
                        "40 .\\Settings.cpp ASStopScan result = 1"};
        lines.resize(std::min(lines.size(), (each.on ? on : off).size()));
        EXPECT_TRUE(Matches(lines, each.on ? on : off));
        EXPECT_EQ(service.Calls("ASStartScan").size(), each.on ? 1u : 0u);
    }
}

TEST(ServiceSettings, ResultsOfTheLibraryAreTracedAndIgnored)
{
    Installation service;
    service.Instruct("ASSetConfigW", "result", "0");
    service.Instruct("ASStartScan", "result", "-7");
    service.Instruct("ASStopScan", "result", "3");
    ASSERT_TRUE(service.Live());
    EXPECT_TRUE(Holds(service.Transcript(),
                      {"40 .\\Settings.cpp ASSetConfigW = 0", "40 .\\Settings.cpp ASStartScan result = -7",
                       "40 .\\crealscan.cpp end of CRealScan::Init()", "40 .\\Setreal.cpp ASStopScan result = 3"}));
}

// The trace library's own log is not scanned when it is the default one, in any letter case.
TEST(ServiceSettings, TheDebugLogIsExcludedOnlyAtItsDefaultPlace)
{
    for (const bool standard : {true, false}) {
        Installation service;
        std::filesystem::create_directory(service.File("Log"));
        WriteBytes(service.File("Log/ard.log"), "");
        WriteBytes(service.File("other.log"), "");
        service.SetException("File0", "C:\\a");
        const std::string path = service.FolderText() + (standard ? "Log\\ARD.log" : "other.log");
        WriteBytes(service.File("ardentis.ini"), "[debug]\r\nlog_path=" + path + "\r\nhot_switch=1\r\n");
        ASSERT_TRUE(service.Live());
        const Lines lines = service.Transcript();
        EXPECT_TRUE(Holds(lines, {"InitDebugEx settings=*ardentis.ini hotSwitch=1 *"}));
        if (standard) {
            EXPECT_TRUE(
                Holds(lines, {"40 .\\Settings.cpp PushBack LogPath to exception list",
                              "ASSetExceptionFilePathW path=C:\\a", "ASSetExceptionFilePathW path=*\\Log\\*.log"}));
        } else {
            EXPECT_TRUE(Holds(lines, {"20 ..\\..\\ARDCommon\\DebugLogPath.cpp not match (" + path + ")",
                                      "40 .\\Settings.cpp Not except log file", "ASSetExceptionFilePathW path=C:\\a"}));
            EXPECT_EQ(service.Calls("ASSetExceptionFilePathW").size(), 2u);
        }
    }
}

// The recycle folders are protected only together with the user's start-up folders, and come first.
TEST(ServiceSettings, ProtectedFoldersReachTheLibraryAsOneMultiString)
{
    Installation service;
    std::filesystem::create_directories(service.File("Office/XLStart"));
    const WString root = service.Folder() + TEXT("Office\\");
    constexpr const WCHAR* kOfficeKey = TEXT("SOFTWARE\\Microsoft\\Office\\9.0\\Excel\\InstallRoot");
    service.SetBytes(kOfficeKey, "path", REG_SZ, Utf16(root + WCHAR(0)));
    ASSERT_TRUE(service.Live());
    WString list;
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const std::string drive = std::string(1, letter) + ":\\";
        if (GetDriveTypeA(drive.c_str()) == DRIVE_FIXED)
            list += vlt::ToWide(drive + "Recycled\\") + WCHAR(0) + vlt::ToWide(drive + "Recycler\\") + WCHAR(0);
    }
    list += root + TEXT("XLStart\\") + WCHAR(0) + WCHAR(0);
    std::string expected;
    for (const char c : Utf16(list))
        expected += vlt::Format("%02x", static_cast<unsigned char>(c));
    EXPECT_EQ(service.Calls("ASSetConfigW").at(0)["protectedFolders"], expected);
    const std::string folder = vlt::ToNarrow(root, CP_UTF8) + "XLStart\\*";
    EXPECT_TRUE(
        Holds(service.Transcript(), {"40 .\\Settings.cpp strVirusForbidList length: " + std::to_string(folder.size()),
                                     "40 .\\Settings.cpp strVirusForbidList(" + folder + ")"}));
    RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kOfficeKey, KEY_WOW64_32KEY, 0);
}
