// The rollback of patterns: real pattern folder, registry, settings and pattern library.
#include "ARDCommon/RollbackFunc.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/Registry.h"
#include "ARDCommon/RollbackState.h"
#include "ARDCommon/RollbackUtil.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr const WCHAR* kProduct = TEXT("Software\\Veltrano\\Ardentis");
constexpr const WCHAR* kProductKeys = TEXT("Software\\Veltrano\\Ardentis\\15");
constexpr DWORD kMost = 0xFFFFFFFF;

class Rollback : public testing::Test
{
protected:
    // One folder for the process, for the pattern folder is read once.
    static void SetUpTestSuite() { s_folder = std::make_unique<vlt::test::TempFolder>(); }
    static void TearDownTestSuite() { s_folder.reset(); }

    Rollback()
    {
        for (const auto& entry : fs::directory_iterator(s_folder->HostPath()))
            fs::remove_all(entry);
        vlt::DeleteRegKey(HKEY_LOCAL_MACHINE, kProductKeys, TEXT("Rollback"));
        vlt::SetRegString(HKEY_LOCAL_MACHINE, kProduct, TEXT("Application Path"), s_folder->PathW().c_str());
        Info(TEXT("Pattern"), TEXT("123456"));
        Info(TEXT("Engine"), TEXT("8.500.1"));
    }
    ~Rollback() override
    {
        vlt::DeleteRegKey(HKEY_LOCAL_MACHINE, kProductKeys, TEXT("Rollback"));
        vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, kProduct, TEXT("Application Path"));
        DeleteFileW(vlt::SettingsFile().c_str());
    }

    static void Info(const WCHAR* key, const WCHAR* value)
    {
        WritePrivateProfileStringW(TEXT("Info"), key, value, vlt::SettingsFile().c_str());
    }
    static void File(const std::string& name, const std::string& content = "x")
    {
        vlt::test::WriteBytes(s_folder->HostPath(name), content);
    }
    // Names and contents.
    static std::string Files()
    {
        std::set<std::string> files;
        for (const auto& entry : fs::directory_iterator(s_folder->HostPath()))
            if (entry.is_regular_file())
                files.insert(entry.path().filename().string() + '=' + vlt::test::ReadBytes(entry.path()));
        std::string text;
        for (const std::string& file : files)
            text += file + ' ';
        return text;
    }
    static std::string Path(const std::string& name) { return vlt::ToNarrow(s_folder->PathW(name)); }
    // Nobody can delete or rename the file while the handle is there.
    static vlt::FileHandle Hold(const std::string& name)
    {
        return vlt::FileHandle(
            CreateFileA(Path(name).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    }

    // A probation after an abnormal end.
    static void Arm(DWORD abnormal = 1, DWORD normal = 0)
    {
        RollbackState::RollbackFlag.Set(true);
        RollbackState::RtsStatus.Set(true);
        RollbackState::AbnormalCounter.Set(abnormal);
        RollbackState::NormalCounter.Set(normal);
    }
    // RollbackFlag, RTSStatus, both counters, NotifyFlag.
    static std::string Values()
    {
        return vlt::Format("%d %d %u %u %d", RollbackState::RollbackFlag.Get(), RollbackState::RtsStatus.Get(),
                           RollbackState::NormalCounter.Get(), RollbackState::AbnormalCounter.Get(),
                           RollbackState::NotifyFlag.Get());
    }
    static std::string Info()
    {
        std::string name, number;
        CRollbackUtil::GetRollbackInfo(name, number);
        return name + '|' + number + '|' + RollbackState::EngVer.Get();
    }
    static Lines Start()
    {
        return Traced([] { CRollbackFunc().StartCheck(); });
    }
    static std::string Restore(Lines& lines)
    {
        std::string name = "n", number = "n";
        bool restored = false;
        lines = Traced([&] { restored = CRollbackUtil::Restore(name, number); });
        return restored ? name + ' ' + number : name + number + "refused";
    }

    static std::unique_ptr<vlt::test::TempFolder> s_folder;
};

std::unique_ptr<vlt::test::TempFolder> Rollback::s_folder;

TEST_F(Rollback, SecondAbnormalEndPutsTheNewPatternAside)
{
    File("ptf$qrv.233", "old");
    File("ptf$qrv.234", "new");
    File("rb_ptf$qrv.100");
    fs::create_directory(s_folder->HostPath("ptf$qrv.dir"));
    RollbackState::RollbackFlag.Set(true);
    EXPECT_EQ(Start(), Lines()) << "the first start after the installation";
    EXPECT_EQ(Values(), "1 1 0 0 0");
    RollbackState::NormalCounter.Set(1);
    EXPECT_EQ(Start(), Lines{"40 RollbackFunc.cpp: Rollback : Found Abnormal shutdown ! (1)"});
    EXPECT_EQ(Values(), "1 1 0 1 0");
    EXPECT_EQ(
        Start(),
        (Lines{"40 RollbackFunc.cpp: Rollback : Found Abnormal shutdown ! (2)",
               "50 RollbackUtil.cpp: >>> CRollbackUtil::CountPatternFile",
               "40 RollbackUtil.cpp: \tfound pattern: ptf$qrv.233", "40 RollbackUtil.cpp: \tfound pattern: ptf$qrv.234",
               "50 RollbackUtil.cpp: <<< CRollbackUtil::CountPatternFile, (2)",
               "40 RollbackFunc.cpp: Rollback : Start rollback", "50 RollbackUtil.cpp: >>> CRollbackUtil::Rollback",
               "50 RollbackUtil.cpp: >>> CRollbackUtil::Purge",
               "40 RollbackUtil.cpp: \trollbacked pattern: rb_ptf$qrv.234",
               "40 RollbackUtil.cpp: \tfind path: " + Path("rb_ptf$qrv.*"),
               "40 RollbackUtil.cpp: \tfound pattern: rb_ptf$qrv.100",
               "40 RollbackUtil.cpp: \tdelete pattern: rb_ptf$qrv.100",
               "40 RollbackUtil.cpp: \tfound pattern: rb_ptf$qrv.234", "50 RollbackUtil.cpp: <<< CRollbackUtil::Purge",
               "50 RollbackUtil.cpp: <<< CRollbackUtil::Rollback",
               "50 RollbackFunc.cpp: Enter CRollbackFunc::WriterRollbackLog()...",
               "50 RollbackFunc.cpp: Exit CRollbackFunc::WriterRollbackLog()..."}));
    EXPECT_EQ(Files(), "ptf$qrv.233=old rb_ptf$qrv.234=new ");
    EXPECT_EQ(Values(), "0 1 0 0 1");
    EXPECT_EQ(Info(), "ptf$qrv.234|123456|8.500.1");
    const auto log = fs::directory_iterator(s_folder->HostPath("Log"))->path();
    EXPECT_TRUE(std::regex_match(log.filename().string(), std::regex("[0-9]{8}\\.UPG"))) << log;
    EXPECT_TRUE(std::regex_match(vlt::test::ReadBytes(log),
                                 std::regex(log.stem().string() + "\\|[0-9]{4}\\|2\\|3\\|123456\r\n")));
}

TEST_F(Rollback, CountersAndTheirLimits)
{
    const struct {
        DWORD frequency, abnormal;
        const char* values;
    } starts[] = {
        {0, 0, "1 1 0 1 0"},     // 0 stands for 2
        {1, 0, "0 1 0 0 1"},     //
        {2, kMost, "0 1 0 0 1"}, // does not begin anew
        {kMost, 5, "1 1 0 6 0"}, //
        {kMost, kMost - 1, "0 1 0 0 1"},
    };
    for (const auto& start : starts) {
        File("ptf$qrv.233");
        File("ptf$qrv.234");
        RollbackState::FreqAbnormal.Set(start.frequency);
        RollbackState::NotifyFlag.Set(false);
        Arm(start.abnormal, 1);
        CRollbackFunc().StartCheck();
        EXPECT_EQ(Values(), start.values) << start.frequency << ' ' << start.abnormal;
    }
    const struct {
        DWORD frequency, normal;
        const char* values;
    } stops[] = {{0, 0, "1 0 1 0 0"}, {1, 0, "0 0 0 0 0"}, {2, 1, "0 0 0 0 0"}, {2, kMost, "0 0 0 0 0"}};
    for (const auto& stop : stops) {
        RollbackState::FreqNormal.Set(stop.frequency);
        RollbackState::NotifyFlag.Set(false);
        Arm(1, stop.normal);
        EXPECT_TRUE(CRollbackFunc().StopNotice());
        EXPECT_EQ(Values(), stop.values) << stop.frequency << ' ' << stop.normal;
    }
    RollbackState::RtsStatus.Set(true);
    EXPECT_FALSE(CRollbackFunc().StopNotice()) << "nothing is on probation";
    EXPECT_EQ(Values(), "0 0 0 0 0");
    Arm(7, 7);
    RollbackState::EnableAuto.Set(false);
    EXPECT_EQ(Start(), Lines());
    EXPECT_FALSE(CRollbackFunc().StopNotice());
    EXPECT_EQ(Values(), "1 0 7 7 0");
}

TEST_F(Rollback, IsSkippedWithoutAnOlderPattern)
{
    File("ptf$qrv.234");
    File("rb_ptf$qrv.233");
    Arm();
    EXPECT_EQ(Start().back(), "40 RollbackFunc.cpp: Rollback : Skip rollback");
    EXPECT_EQ(Values(), "0 1 0 0 0");
    EXPECT_EQ(Files(), "ptf$qrv.234=x rb_ptf$qrv.233=x ");
}

TEST_F(Rollback, FailureLeavesEverythingForTheNextAbnormalStart)
{
    File("ptf$qrv.233");
    File("ptf$qrv.234", "new");
    File("rb_ptf$qrv.234", "stale");
    Arm();
    Info(TEXT("Pattern"), TEXT("99"));
    EXPECT_EQ(Start().back(), "20 RollbackUtil.cpp: \toriginal pattern does not exist. file:" + Path("ptf$qrv.000"));
    Info(TEXT("Pattern"), TEXT("123456"));
    {
        const vlt::FileHandle held = Hold("rb_ptf$qrv.234");
        EXPECT_EQ(Start().back(),
                  "20 RollbackUtil.cpp: \tDeleteFile() failed: 0x00000020, file:" + Path("rb_ptf$qrv.234"));
    }
    EXPECT_EQ(Files(), "ptf$qrv.233=x ptf$qrv.234=new rb_ptf$qrv.234=stale ");
    {
        const vlt::FileHandle held = Hold("ptf$qrv.234");
        EXPECT_EQ(Start().back(), "20 RollbackUtil.cpp: \tMoveFile() failed: 0x00000020, file:" + Path("ptf$qrv.234"));
    }
    EXPECT_EQ(Values(), "1 1 0 1 0");
    EXPECT_EQ(Info(), "||");
    EXPECT_FALSE(fs::exists(s_folder->HostPath("Log")));
    Start();
    EXPECT_EQ(Files(), "ptf$qrv.233=x rb_ptf$qrv.234=new ");
    EXPECT_EQ(Values(), "0 1 0 0 1");
}

// The start that put the pattern aside was killed before it noted that.
TEST_F(Rollback, KilledAfterTheRenameGoesOnWithThePreviousPattern)
{
    for (const char* older : {"", "ptf$qrv.232"}) {
        File("ptf$qrv.233");
        File("rb_ptf$qrv.234");
        if (*older)
            File(older);
        Arm();
        Start();
        EXPECT_EQ(Values(), *older ? "1 1 0 1 0" : "0 1 0 0 0") << "two are needed to try again";
        EXPECT_TRUE(fs::exists(s_folder->HostPath("ptf$qrv.233")));
        EXPECT_TRUE(fs::exists(s_folder->HostPath("rb_ptf$qrv.234")));
    }
    EXPECT_TRUE(CRollbackFunc().StopNotice());
    CRollbackFunc().StartCheck();
    EXPECT_TRUE(CRollbackFunc().StopNotice());
    EXPECT_EQ(Values(), "0 0 0 0 0") << "two normal stops prove what is left";
}

TEST_F(Rollback, RestorePutsBackWhatIsRecordedOrNothing)
{
    Lines lines;
    File("rb_ptf$qrv.100");
    RollbackState::RbPatName.Set("ptf$qrv.234"); // without a number it is no record
    EXPECT_EQ(Restore(lines), "refused");
    EXPECT_EQ(lines, (Lines{"50 RollbackUtil.cpp: >>> CRollbackUtil::Restore",
                            "40 RollbackUtil.cpp: \tPatternName: ptf$qrv.234, PatternVersion: ",
                            "20 RollbackUtil.cpp: \tno rollbacked pattern"}));
    EXPECT_EQ(Info(), "||");
    EXPECT_EQ(Files(), "rb_ptf$qrv.100=x ");

    CRollbackUtil::SaveRollbackInfo("ptf$qrv.234", "123456");
    EXPECT_EQ(Restore(lines), "refused");
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[2], "20 RollbackUtil.cpp: \trollbacked pattern does not exist");
    EXPECT_EQ(lines[4], "40 RollbackUtil.cpp: \trollbacked pattern: rb_") << "the record is cleared before";
    EXPECT_EQ(Info() + Files(), "||");

    File("ptf$qrv.234", "downloaded again");
    File("rb_ptf$qrv.234");
    CRollbackUtil::SaveRollbackInfo("ptf$qrv.234", "123456");
    EXPECT_EQ(Restore(lines), "refused");
    EXPECT_EQ(lines.at(2), "20 RollbackUtil.cpp: \toriginal pattern already exists");
    EXPECT_EQ(Info() + Files(), "||ptf$qrv.234=downloaded again ");

    EXPECT_TRUE(CRollbackUtil::Rollback("ptf$qrv.234", "123456"));
    {
        const vlt::FileHandle held = Hold("rb_ptf$qrv.234");
        EXPECT_EQ(Restore(lines), "refused");
        EXPECT_EQ(lines.back(), "20 RollbackUtil.cpp: \tMoveFile() failed: 0x00000020");
        lines = Traced([] {
            RollbackState::RbPatName.Set("");
            CRollbackUtil::Purge();
            RollbackState::RbPatName.Set("ptf$qrv.234");
        });
        EXPECT_EQ(lines.at(lines.size() - 2), "20 RollbackUtil.cpp: \tDeleteFile() failed: 0x00000020");
    }
    EXPECT_EQ(Info(), "ptf$qrv.234|123456|8.500.1");
    EXPECT_EQ(Restore(lines), "ptf$qrv.234 123456");
    EXPECT_EQ(lines.back(), "50 RollbackUtil.cpp: <<< CRollbackUtil::Restore");
    EXPECT_EQ(Info() + Files(), "||ptf$qrv.234=downloaded again ");
}

TEST_F(Rollback, RestoredPatternIsPutAsideAgainWhileItIsTheNewest)
{
    const std::string again = "40 RollbackFunc.cpp: re-rollback restored pattern";
    const auto start = [](const char* name, const char* number, const WCHAR* version, const WCHAR* result) {
        File("ptf$qrv.234");
        RollbackState::RsPatName.Set(name);
        RollbackState::RsPatNo.Set(number);
        SetEnvironmentVariableW(TEXT("TEST_VERSION"), version);
        SetEnvironmentVariableW(TEXT("TEST_RESULT"), result);
        Lines lines = Start();
        std::string left;
        EXPECT_FALSE(CRollbackUtil::GetAndClearRestoredInfo(left, left));
        std::erase_if(lines, [](const std::string& line) { return line.find(" RollbackFunc.cpp: ") == line.npos; });
        return lines;
    };
    const auto compared = [](const char* restored, const char* last) {
        return vlt::Format("40 RollbackFunc.cpp: restored version: %s, last version: %s", restored, last);
    };
    const char* const name = "ptf$qrv.234";
    EXPECT_EQ(start(name, "", TEXT("1"), TEXT("0")), Lines());
    EXPECT_EQ(start("", "123456", TEXT("1"), TEXT("0")), Lines());
    EXPECT_EQ(start(name, "new", TEXT("1"), TEXT("0")), Lines{"20 RollbackFunc.cpp: restored version invalid: new"});
    // No library: whatever was restored is the newest.
    EXPECT_EQ(start(name, "5", TEXT("1"), TEXT("0")),
              (Lines{"20 RollbackFunc.cpp: Failed cKsapiDllLib.InitA", compared("5", "0"), again}));
    EXPECT_EQ(Info(), "ptf$qrv.234|5|8.500.1");

    fs::copy_file(VLT_PATTERN_LIBRARY, s_folder->HostPath("Ksapi64.dll"));
    SetEnvironmentVariableW(TEXT("TEST_LAST_PATTERN"), TEXT("ptf$qrv.235"));
    EXPECT_EQ(start(name, "123456", TEXT("123457"), TEXT("0")), Lines{compared("123456", "123457")});
    EXPECT_TRUE(fs::exists(s_folder->HostPath(name)));
    EXPECT_EQ(start(name, "123456", TEXT("123456"), TEXT("0")), (Lines{compared("123456", "123456"), again}));
    EXPECT_FALSE(fs::exists(s_folder->HostPath(name)));
    EXPECT_EQ(
        start(name, "99999999999", TEXT("7"), TEXT("-3")),
        (Lines{"20 RollbackFunc.cpp: Failed KSGetPatternInternalVersion(): -3", compared("2147483647", "0"), again}));
    SetEnvironmentVariableW(TEXT("TEST_LAST_PATTERN"), nullptr); // no pattern at all
    EXPECT_EQ(start("..\\none", "-1", TEXT("7"), TEXT("0")), Lines{compared("-1", "0")});
    EXPECT_EQ(start("..\\none", "1", TEXT("7"), TEXT("0")), (Lines{compared("1", "0"), again}));
}

TEST_F(Rollback, LogTakesALineOfEachRollback)
{
    const CRollbackFunc rollback;
    const SYSTEMTIME day{2007, 6, 2, 5, 3, 4, 59, 900};
    EXPECT_TRUE(rollback.WriterRollbackLog(day, "1"));
    {
        const vlt::FileHandle reader(CreateFileA(Path("Log\\20070605.UPG").c_str(), GENERIC_READ,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                                 nullptr));
        EXPECT_TRUE(rollback.WriterRollbackLog(day, std::string(600, '2')));
    }
    {
        const vlt::FileHandle held = Hold("Log\\20070605.UPG");
        EXPECT_EQ(Traced([&] { EXPECT_FALSE(rollback.WriterRollbackLog(day, "3")); }),
                  (Lines{"50 RollbackFunc.cpp: Enter CRollbackFunc::WriterRollbackLog()...",
                         "20 RollbackFunc.cpp: *** CRollbackFunc::WriterRollbackLog() - Failed to CreateFile(). "
                         "LastError[0x00000020]"}));
    }
    const std::string prefix = "20070605|0304|2|3|";
    EXPECT_EQ(vlt::test::ReadBytes(s_folder->HostPath("Log/20070605.UPG")),
              prefix + "1\r\n" + prefix + std::string(519 - prefix.size(), '2'));
}

TEST_F(Rollback, TextsOfTheRecord)
{
    using RollbackState::MoreInfo;
    EXPECT_EQ(MoreInfo.GetW(), WString());
    EXPECT_TRUE(MoreInfo.SetW(TEXT("gr\u00FCn")));
    EXPECT_EQ(MoreInfo.Get(), vlt::ToNarrow(TEXT("gr\u00FCn")));
    EXPECT_TRUE(MoreInfo.Set(std::string(511, 'x')));
    EXPECT_EQ(MoreInfo.Get().size(), 511u);
    EXPECT_TRUE(MoreInfo.Set(std::string(512, 'x')));
    EXPECT_EQ(MoreInfo.Get(), "");
    EXPECT_TRUE(RollbackState::EnableNotify.Get());
    vlt::SetRegString(HKEY_LOCAL_MACHINE, TEXT("Software\\Veltrano\\Ardentis\\15\\Rollback"), TEXT("FreqNormal"),
                      TEXT("9"));
    EXPECT_EQ(RollbackState::FreqNormal.Get(), 2u);
}

} // namespace
