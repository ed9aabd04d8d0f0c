// What the service keeps beside its program: the text log, the version records, and the place of the
// trace library's log.
#include "ARDCommon/DebugLogPath.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/ServiceLog.h"
#include "engine/ProcAddress.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/State.h"
#include "realtime/Versions.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <regex>

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::Traced;

class ProgramFiles : public testing::Test
{
protected:
    ProgramFiles() { Clean(); }
    ~ProgramFiles() override { Clean(); }

    void Clean() const
    {
        for (const fs::path& file : {m_log, m_ini, m_recordingIni, m_debugLog})
            fs::remove(file);
    }

    static std::string Info(const WCHAR* key)
    {
        WCHAR text[512] = {};
        GetPrivateProfileStringW(TEXT("Info"), key, TEXT("(none)"), text, 512, vlt::SettingsFile().c_str());
        return vlt::ToNarrow(text);
    }

    const fs::path m_folder = vlt::test::ProgramFolder();
    const fs::path m_log = m_folder / "VLNTSRV.LOG";
    const fs::path m_ini = m_folder / "ardentis.ini";
    const fs::path m_recordingIni = m_folder / "recording.ini";
    const fs::path m_debugLog = m_folder / "Log" / "ard.log";
};

TEST_F(ProgramFiles, ServiceLogIsWrittenOnlyWhenItExists)
{
    EXPECT_EQ(WriteServiceLog(TEXT("lost\r\n")), 0u);
    EXPECT_FALSE(fs::exists(m_log));

    vlt::test::WriteBytes(m_log, "before\n");
    const DWORD first = WriteServiceLog(TEXT("ASSetConfigW = %d\r\n"), -1);
    const DWORD second = WriteServiceLog(TEXT("%s"), WString(3000, TEXT('x')));
    const std::string text = vlt::test::ReadBytes(m_log);
    EXPECT_TRUE(std::regex_match(
        text, std::regex("before\n[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2} ASSetConfigW = -1\r\n\r\n"
                         "[0-9/]{10} [0-9:]{5} x+")))
        << text;
    EXPECT_EQ(second, 1023u);
    EXPECT_EQ(text.size(), 7u + first + second);

    // Another writer at the same moment.
    const vlt::FileHandle writer(CreateFileW((vlt::ProgramFolder() + TEXT("VLNTSRV.LOG")).c_str(), GENERIC_WRITE,
                                             FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(writer);
    EXPECT_EQ(WriteServiceLog(TEXT("lost\r\n")), 0u);
}

TEST_F(ProgramFiles, DebugLogPathIsComparedInShortFormAndWithoutCase)
{
    const auto ask = [](WString* path) {
        bool result = false;
        const Lines lines = Traced([&] { result = IsDefaultDebugLogPath(path); });
        EXPECT_EQ(result, lines.empty());
        EXPECT_LE(lines.size(), 1u);
        return lines.empty() ? std::string() : lines[0];
    };
    const auto configure = [](const WString& path) {
        WritePrivateProfileStringW(TEXT("debug"), TEXT("log_path"), path.c_str(), vlt::SettingsFile().c_str());
    };
    const std::string shortFailed = "20 DebugLogPath.cpp: Error: GetShortPathName ( ";
    EXPECT_TRUE(ask(nullptr).starts_with(shortFailed)); // there is no such log
    fs::create_directories(m_debugLog.parent_path());
    vlt::test::WriteBytes(m_debugLog, "");
    EXPECT_TRUE(ask(nullptr).starts_with("20 DebugLogPath.cpp: Error: GetPrivateProfileStringW ("));
    configure(vlt::ProgramFolder() + TEXT("Log\\none.log"));
    EXPECT_TRUE(ask(nullptr).starts_with(shortFailed));
    configure(vlt::SettingsFile());
    EXPECT_TRUE(ask(nullptr).starts_with("20 DebugLogPath.cpp: not match ("));

    configure(vlt::ProgramFolder() + TEXT("LOG\\ARD.LOG"));
    WString path;
    EXPECT_EQ(ask(&path), "");
    EXPECT_EQ(lstrcmpiW(path.substr(path.size() - 12).c_str(), TEXT("\\Log\\ard.log")), 0) << vlt::ToNarrow(path);
}

TEST_F(ProgramFiles, VersionsAreRecordedForTheUserInterface)
{
    EXPECT_EQ(vlt::EngineInfoText(8.5), TEXT("8.500"));
    EXPECT_EQ(vlt::EngineInfoText(0.0626), TEXT(".063"));
    EXPECT_EQ(vlt::EngineInfoText(-1e300).size(), 305u);
    for (const auto& [minor, expected] : {std::pair{0u, 0u}, {9u, 900u}, {10u, 100u}, {99u, 990u}, {100u, 100u}})
        EXPECT_EQ(vlt::NormalisedMinor(minor), expected);

    vlt::RealtimeState& state = vlt::Realtime();
    state.scanModule.Reset(
        LoadLibraryW(vlt::ToWide("Z:" + (fs::path(VLT_RECORDING_FOLDER) / "ArdScan.dll").string()).c_str()));
    ASSERT_TRUE(state.scanModule);
    ASSERT_TRUE(state.scanTable.Resolve(state.scanModule.Get()));
    WriteEngineInfoVersion(nullptr);
    EXPECT_EQ(Info(TEXT("engine")), "8.500");
    WriteEngineVersion(nullptr);
    EXPECT_EQ(Info(TEXT("Engine")), "8.500.1001");
    vlt::test::WriteBytes(m_recordingIni,
                          "[ASGetEngineInformation]\nminor=55\n[ASGetPatternInformation]\nversion=-1\n");
    WriteEngineVersion(nullptr);
    WritePatternVersion(nullptr);
    WriteSpywareVersion(nullptr);
    EXPECT_EQ(Info(TEXT("Engine")), "8.550.1001");
    EXPECT_EQ(Info(TEXT("Pattern")), "4294967295");
    EXPECT_EQ(Info(TEXT("SpyWare")), "77");
    vlt::test::WriteBytes(m_recordingIni, "[ASGetSpyWarePatternVersion]\nresult=0\nversion=78\n");
    WriteSpywareVersion(nullptr);
    EXPECT_EQ(Info(TEXT("SpyWare")), "77");

    EXPECT_EQ(Traced([] { WriteVersionErrorValues(VERSION_ERROR_PATTERN | VERSION_ERROR_ENGINE); }),
              (Lines{"40 Versions.cpp: Write error value to ard-entis.ini Pattern=0",
                     "40 Versions.cpp: Write error value to ard-entis.ini Engine=7.0.0"}));
    EXPECT_EQ(Info(TEXT("SpyWare")), "77");
    EXPECT_EQ(Traced([] { WriteVersionErrorValues(VERSION_ERROR_SPYWARE); }),
              Lines{"40 Versions.cpp: Write error value to ard-entis.ini Spyware=0"});
    EXPECT_EQ(Info(TEXT("Pattern")) + " " + Info(TEXT("Engine")) + " " + Info(TEXT("SpyWare")), "0 7.0.0 0");
    EXPECT_EQ(vlt::test::ReadBytes(m_ini).find("Spyware"), std::string::npos); // one entry, its key kept
}

} // namespace
