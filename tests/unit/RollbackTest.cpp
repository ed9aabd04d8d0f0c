// The rollback of patterns: real pattern folder, registry, settings and pattern library.
#include "ARDCommon/RollbackFunc.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/RollbackState.h"
#include "ARDCommon/RollbackUtil.h"
#include "platform/Format.h"
#include "platform/Unique.h"
#include "tests/unit/ApplicationFolder.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <regex>

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr DWORD kMost = 0xFFFFFFFF;

class Rollback : public testing::Test
{
protected:
    // One folder for the process, for the pattern folder is read once.
    static void SetUpTestSuite() { s_folder = std::make_unique<vlt::test::ApplicationFolder>(); }
    static void TearDownTestSuite() { s_folder.reset(); }

    Rollback()
    {
        for (const auto& entry : fs::directory_iterator(s_folder->HostPath()))
            fs::remove_all(entry);
        SetNumber("123456");
        WritePrivateProfileStringW(TEXT("Info"), TEXT("Engine"), TEXT("8.500.1"), vlt::SettingsFile().c_str());
    }
    ~Rollback() override
    {
        vlt::DeleteRegKey(HKEY_LOCAL_MACHINE, TEXT("Software\\Veltrano\\Ardentis\\15"), TEXT("Rollback"));
        DeleteFileW(vlt::SettingsFile().c_str());
        fs::remove(vlt::test::ProgramFolder() / "recording.ini");
    }

    static void SetNumber(const char* number)
    {
        WritePrivateProfileStringA("Info", "Pattern", number, vlt::ToNarrow(vlt::SettingsFile()).c_str());
    }
    static void File(const std::string& name, const std::string& content = "x") { s_folder->Write(name, content); }
    static std::string Path(const std::string& name) { return s_folder->Path(name); }
    // Names and contents.
    static std::string Files()
    {
        std::string text;
        for (const char* name : {"ptf$qrv.233", "ptf$qrv.234", "rb_ptf$qrv.100", "rb_ptf$qrv.234"})
            if (s_folder->Has(name))
                text += name + ('=' + s_folder->Read(name)) + ' ';
        return text;
    }
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
        RollbackState::NotifyFlag.Set(false);
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
    // What a start traces, without the library's loading.
    static Lines Start()
    {
        Lines lines = Traced([] { CRollbackFunc().StartCheck(); });
        std::erase_if(lines, [](const std::string& line) { return line.find(" Rollback") == line.npos; });
        return lines;
    }
    static std::string Restore(Lines& lines)
    {
        std::string name = "n", number = "n";
        bool restored = false;
        lines = Traced([&] { restored = CRollbackUtil::Restore(name, number); });
        return restored ? name + ' ' + number : name + number + "refused";
    }

    static std::unique_ptr<vlt::test::ApplicationFolder> s_folder;
};

std::unique_ptr<vlt::test::ApplicationFolder> Rollback::s_folder;

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
    } starts[] = {{0, 0, "1 1 0 1 0"}, // 0 stands for 2
                  {1, 0, "0 1 0 0 1"},
                  {2, kMost, "0 1 0 0 1"}, // does not begin anew
                  {kMost, 5, "1 1 0 6 0"},
                  {kMost, kMost - 1, "0 1 0 0 1"}};
    for (const auto& start : starts) {
        File("ptf$qrv.233");
        File("ptf$qrv.234");
        RollbackState::FreqAbnormal.Set(start.frequency);
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

TEST_F(Rollback, FailureLeavesEverythingForTheNextAbnormalStart)
{
    File("ptf$qrv.233");
    File("ptf$qrv.234", "new");
    File("rb_ptf$qrv.234", "stale");
    Arm();
    SetNumber("99");
    EXPECT_EQ(Start().back(), "20 RollbackUtil.cpp: \toriginal pattern does not exist. file:" + Path("ptf$qrv.000"));
    SetNumber("123456");
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
    EXPECT_EQ(Values() + Info(), "1 1 0 1 0||");
    EXPECT_FALSE(s_folder->Has("Log"));
    Start();
    EXPECT_EQ(Files() + Values(), "ptf$qrv.233=x rb_ptf$qrv.234=new 0 1 0 0 1");
}

// The start that put the pattern aside was killed before it noted that.
TEST_F(Rollback, KilledAfterTheRenameGoesOnWithThePreviousPattern)
{
    File("ptf$qrv.233");
    File("rb_ptf$qrv.234");
    Arm();
    EXPECT_EQ(Start().back(), "40 RollbackFunc.cpp: Rollback : Skip rollback");
    EXPECT_EQ(Values(), "0 1 0 0 0");
    File("ptf$qrv.232"); // with two patterns left it tries again, in vain, until they have proved good
    Arm();
    Start();
    EXPECT_EQ(Values(), "1 1 0 1 0");
    CRollbackFunc().StopNotice();
    CRollbackFunc().StartCheck();
    CRollbackFunc().StopNotice();
    EXPECT_EQ(Values(), "0 0 0 0 0");
    EXPECT_EQ(Files(), "ptf$qrv.233=x rb_ptf$qrv.234=x ");
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
    EXPECT_EQ(Info() + Files(), "||rb_ptf$qrv.100=x ");

    CRollbackUtil::SaveRollbackInfo("ptf$qrv.234", "123456");
    EXPECT_EQ(Restore(lines), "refused");
    EXPECT_EQ(lines.at(2), "20 RollbackUtil.cpp: \trollbacked pattern does not exist");
    EXPECT_EQ(lines.at(4), "40 RollbackUtil.cpp: \trollbacked pattern: rb_") << "the record is cleared before";
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
        EXPECT_EQ(Info(), "ptf$qrv.234|123456|8.500.1");
        RollbackState::RbPatName.Set("");
        lines = Traced([] { CRollbackUtil::Purge(); });
        EXPECT_EQ(lines.at(lines.size() - 2), "20 RollbackUtil.cpp: \tDeleteFile() failed: 0x00000020");
        RollbackState::RbPatName.Set("ptf$qrv.234");
    }
    EXPECT_EQ(Restore(lines), "ptf$qrv.234 123456");
    EXPECT_EQ(lines.back(), "50 RollbackUtil.cpp: <<< CRollbackUtil::Restore");
    EXPECT_EQ(Info() + Files(), "||ptf$qrv.234=downloaded again ");
}

TEST_F(Rollback, RestoredPatternIsPutAsideAgainWhileItIsTheNewest)
{
    const std::string name = "ptf$qrv.234";
    // What a start traces of the decision; the pattern library knows of a pattern of version 56700.
    const auto start = [&](const char* number, const std::string& answers = {}) {
        File(name);
        vlt::test::WriteBytes(vlt::test::ProgramFolder() / "recording.ini", answers);
        RollbackState::RsPatName.Set(*number ? name : std::string("none"));
        RollbackState::RsPatNo.Set(number);
        Lines lines = Start();
        EXPECT_EQ(RollbackState::RsPatName.Get() + RollbackState::RsPatNo.Get(), "");
        std::erase_if(lines, [](const std::string& line) { return line.find(" RollbackFunc.cpp: ") == line.npos; });
        return lines;
    };
    const std::string again = "40 RollbackFunc.cpp: re-rollback restored pattern";
    EXPECT_EQ(start(""), Lines());
    EXPECT_EQ(start("new"), Lines{"20 RollbackFunc.cpp: restored version invalid: new"});
    EXPECT_EQ(start("5"), (Lines{"20 RollbackFunc.cpp: Failed cKsapiDllLib.InitA",
                                 "40 RollbackFunc.cpp: restored version: 5, last version: 0", again}));
    EXPECT_EQ(Info(), name + "|5|8.500.1");

    fs::copy_file(VLT_RECORDING_FOLDER "/Ksapi64.dll", s_folder->HostPath("Ksapi64.dll"));
    EXPECT_EQ(start("56699"), Lines{"40 RollbackFunc.cpp: restored version: 56699, last version: 56700"});
    EXPECT_TRUE(s_folder->Has(name));
    EXPECT_EQ(start("56700"), (Lines{"40 RollbackFunc.cpp: restored version: 56700, last version: 56700", again}));
    EXPECT_FALSE(s_folder->Has(name));
    EXPECT_EQ(start("99999999999", "[KSGetPatternInternalVersion]\nresult=-3\n"),
              (Lines{"20 RollbackFunc.cpp: Failed KSGetPatternInternalVersion(): -3",
                     "40 RollbackFunc.cpp: restored version: 2147483647, last version: 0", again}));
    EXPECT_EQ(start("-1", "[KSGetLastPattern]\nresult=1\n"),
              Lines{"40 RollbackFunc.cpp: restored version: -1, last version: 0"});
}

TEST_F(Rollback, LogTakesALineOfEachRollback)
{
    const CRollbackFunc rollback;
    const SYSTEMTIME day{2007, 6, 2, 5, 3, 4, 59, 900};
    EXPECT_TRUE(rollback.WriterRollbackLog(day, "1"));
    EXPECT_TRUE(rollback.WriterRollbackLog(day, std::string(600, '2')));
    {
        const vlt::FileHandle held = Hold("Log\\20070605.UPG");
        EXPECT_EQ(Traced([&] { EXPECT_FALSE(rollback.WriterRollbackLog(day, "3")); }).back(),
                  "20 RollbackFunc.cpp: *** CRollbackFunc::WriterRollbackLog() - Failed to CreateFile(). "
                  "LastError[0x00000020]");
    }
    const std::string prefix = "20070605|0304|2|3|";
    EXPECT_EQ(s_folder->Read("Log/20070605.UPG"), prefix + "1\r\n" + prefix + std::string(519 - prefix.size(), '2'));
}

} // namespace
