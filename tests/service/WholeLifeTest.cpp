// Whole lives with everything that a start, a run and a stop can meet, and many of them in a row.
#include "ARDCommon/RollbackFormat.h"
#include "platform/Text.h"
#include "tests/platform/Waiter.h"
#include "tests/service/Lives.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

using namespace vlt::test;
namespace RollbackValue = vlt::RollbackValue;

namespace
{

void Set(Installation& service, const RollbackValue::Number& value, DWORD number)
{
    service.SetBytes(vlt::kRollbackKey, vlt::ToNarrow(value.name).c_str(), REG_DWORD,
                     {reinterpret_cast<const char*>(&number), sizeof number});
}

DWORD Get(const RollbackValue::Number& value)
{
    const Value read = ReadValue(vlt::kRollbackKey, vlt::ToNarrow(value.name).c_str());
    DWORD number = value.fallback;
    if (read.type == REG_DWORD)
        std::memcpy(&number, read.bytes.data(), sizeof number);
    return number;
}

vlt::KernelHandle ReloadEvent()
{
    return vlt::KernelHandle(CreateEventW(nullptr, FALSE, FALSE, TEXT("Global\\Event_Reload_Pattern")));
}

// Of a process that has ended there may be a file, but no object: another kind can have the name.
void ExpectNoNamedObject()
{
    const char* const root = std::getenv("VLT_ROOT");
    if (root == nullptr)
        return;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(root) / "objects")) {
        const std::string name = entry.path().filename().string().substr(2); // after the session
        EXPECT_TRUE(Eventually(kSoon, [&] {                                  // until the process has ended
            const vlt::KernelHandle mutex(CreateMutexW(nullptr, FALSE, vlt::ToWide("Global\\" + name).c_str()));
            return static_cast<bool>(mutex);
        })) << entry.path();
    }
}

Lines Except(Lines lines, const char* text)
{
    std::erase_if(lines, [&](const std::string& line) { return line.find(text) != line.npos; });
    return lines;
}

// One rollback of a pattern, after which no other one is kept aside.
Lines RolledBack(const Installation& service, const std::string& name, const Lines& deleted, const Lines& aside)
{
    const std::string util = " ..\\..\\ARDCommon\\RollbackUtil.cpp ";
    return Join({{"50" + util + ">>> CRollbackUtil::Rollback", "50" + util + ">>> CRollbackUtil::Purge",
                  "40" + util + "\trollbacked pattern: rb_" + name,
                  "40" + util + "\tfind path: " + service.FolderText() + "rb_ptf$qrv.*"},
                 deleted,
                 aside,
                 {"50" + util + "<<< CRollbackUtil::Purge", "50" + util + "<<< CRollbackUtil::Rollback"}});
}

} // namespace

// A restored pattern that is still the newest is put aside before the one that the last two lives died of.
TEST(ServiceWholeLife, CallsEveryLibraryAndProgramInOrder)
{
    Installation service;
    for (const char* number : {"565", "566", "567"})
        WriteBytes(service.File(std::string("ptf$qrv.") + number), number);
    WriteBytes(service.File("ardentis.ini"), "[Info]\r\nPattern=56600\r\n[AuArd]\r\nCount=1001\r\n");
    for (const auto& value : {RollbackValue::RollbackFlag, RollbackValue::RtsStatus, RollbackValue::AbnormalCounter})
        Set(service, value, 1);
    const WString name = TEXT("ptf$qrv.567"), version = TEXT("56700");
    for (const auto& [key, text] : {std::pair{RollbackValue::RsPatName, name}, {RollbackValue::RsPatNo, version}})
        service.SetBytes(vlt::kRollbackKey, vlt::ToNarrow(key).c_str(), REG_SZ,
                         {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(WCHAR)});
    service.Instruct("GetVlpxPID", "status", "1");
    service.Instruct("GetVlpxPID", "pid", "4242");
    const vlt::KernelHandle reload = ReloadEvent();
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    EXPECT_EQ(Get(RollbackValue::RtsStatus), 1u);
    SetEvent(reload.Get());
    const auto reaches = [&](By worker, const char* line) {
        return Eventually(kSoon, [&] { return static_cast<bool>(Holds(LinesBy(worker, service), {line})); });
    };
    EXPECT_TRUE(reaches(By::ControlEvents, "* Executed WSC spyware registration process"));
    EXPECT_TRUE(reaches(By::Exclusion, "* success to add exception process ID 4242"));
    EXPECT_TRUE(reaches(By::Polling, "* Polling time ( 60 )min"));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));

    const std::string util = " ..\\..\\ARDCommon\\RollbackUtil.cpp ", found = "40" + util + "\tfound pattern: ";
    const std::string func = " ..\\..\\ARDCommon\\RollbackFunc.cpp ", folder = service.FolderText();
    Lines start = StartUpToInit(service);
    const Lines check = Join(
        {{"40 .\\DynLib.cpp Success: LoadLibrary(*Ksapi64.dll): *",
          "KSGetLastPattern folder=" + folder + " stem=ptf$qrv",
          "KSGetPatternInternalVersion path=" + folder + "ptf$qrv.567",
          "40" + func + "restored version: 56700, last version: 56700", "40" + func + "re-rollback restored pattern"},
         RolledBack(service, "ptf$qrv.567", {}, {found + "rb_ptf$qrv.567"}),
         {"40" + func + "Rollback : Found Abnormal shutdown ! (2)", "50" + util + ">>> CRollbackUtil::CountPatternFile",
          found + "ptf$qrv.565", found + "ptf$qrv.566", "50" + util + "<<< CRollbackUtil::CountPatternFile, (2)",
          "40" + func + "Rollback : Start rollback"},
         RolledBack(service, "ptf$qrv.566", {found + "*"}, {"*pattern: rb_*", "*pattern: rb_*"}),
         {"50" + func + "Enter CRollbackFunc::WriterRollbackLog()...",
          "50" + func + "Exit CRollbackFunc::WriterRollbackLog()..."}});
    start.insert(start.begin() + 2, check.begin(), check.end());
    Lines rest = StartAfterInit();
    rest.insert(rest.end() - 2, {"20 ..\\..\\ARDCommon\\AuDelayCopy.cpp too big count: 1001",
                                 "20 .\\FileUpdates.cpp CAuDelayCopy::DoMoveFileEx() failed"});
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({start, rest, Stop()})));
    EXPECT_TRUE(Matches(Except(LinesBy(By::Exclusion, service), "VlShareMemory"),
                        {"* AddExceptProcessIdThread Called!", "* success CreateWaitableTimer",
                         "* success SetWaitableTimer", "run /GetVlpxPID", "ASAddRemoveExceptionProcess add=1",
                         "* success to add exception process ID 4242"}));
    EXPECT_TRUE(
        Matches(LinesBy(By::ControlEvents, service),
                {"* Start EventThread", "* Reload KSAPI, Spyware and Pack pattern", "ASSetPackTrap on=0",
                 "ASReloadPatternW kind=7 folder=" + folder, "ASSetPackTrap on=1", "ASGetPatternInformation",
                 "ASGetSpyWarePatternVersion before=0", "ASGetPatternVersion stem=vlwhite before=0",
                 "ASGetPatternVersion stem=vlblack before=0", "*GetRegIntValue err(2)", "* ChangeWSCStatus(1, 0)",
                 "run /WSCAntiVirusOn", "* Executed WSC virus registration process", "run /WSCAntiSpywareOff",
                 "* Executed WSC spyware registration process", "* End EventThread"}));
    EXPECT_EQ(Get(RollbackValue::RtsStatus), 0u);
    EXPECT_EQ(Get(RollbackValue::RollbackFlag), 0u);
    EXPECT_EQ(Get(RollbackValue::NotifyFlag), 1u);
    EXPECT_EQ(ReadBytes(service.File("rb_ptf$qrv.566")), "566");
}

// Of as many lives as VLT_LIVES says, some are stopped before they run and some are killed. A pattern is on probation
// for all of them, so the counters tell which ends the service has noticed.
TEST(ServiceWholeLife, ManyOfThemCountEveryEndAndLeaveNothing)
{
    const char* const given = std::getenv("VLT_LIVES");
    const int lives = given ? std::atoi(given) : 6;
    Installation service;
    service.Instruct("GetVlpxPID", "status", "1");
    Set(service, RollbackValue::RollbackFlag, 1);
    Set(service, RollbackValue::FreqNormal, 0xFFFFFFFF);
    Set(service, RollbackValue::FreqAbnormal, 0xFFFFFFFF);
    vlt::KernelHandle reload = ReloadEvent();
    std::mt19937 engine(20240301);
    const auto random = [&](unsigned below) { return static_cast<unsigned>(engine() % below); };
    DWORD normal = 0, abnormal = 0;
    for (int life = 0; life < lives && !HasFailure(); ++life) {
        SCOPED_TRACE(life);
        const unsigned end = Installation::HasStatusReports() && life + 1 < lives ? random(4) : 3;
        ASSERT_TRUE(service.Start());
        if (end == 0) { // early: the manager would refuse the stop
            ASSERT_TRUE(Eventually(kSoon, [&] { return !service.Calls("InitDebugEx").empty(); }));
            Sleep(random(20));
            Child::Program("/bin/kill", {std::to_string(service.Status().dwProcessId)}).Wait(kSoon);
        } else {
            ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
            EXPECT_EQ(Get(RollbackValue::RtsStatus), 1u);
            EXPECT_EQ(Get(RollbackValue::AbnormalCounter), abnormal);
            EXPECT_EQ(Get(RollbackValue::NormalCounter), normal);
            if (random(2) == 0)
                SetEvent(reload.Get());
            if (random(2) == 0)
                service.Set("InOut", random(1000));
            Sleep(random(40));
            if (end == 1) {
                const vlt::KernelHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, service.Status().dwProcessId));
                ASSERT_TRUE(TerminateProcess(process.Get(), 1));
            } else {
                ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
            }
        }
        ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
        const bool killed = end == 1;
        EXPECT_EQ(service.Status().dwWin32ExitCode, killed ? DWORD{ERROR_PROCESS_ABORTED} : 0u);
        EXPECT_EQ(Get(RollbackValue::RtsStatus), killed ? 1u : 0u);
        normal = killed ? 0 : normal + 1;
        abnormal = killed ? abnormal + 1 : 0;
        std::filesystem::remove(service.File("recorded.log"));
    }
    EXPECT_EQ(Get(RollbackValue::NormalCounter), normal);
    EXPECT_EQ(Get(RollbackValue::AbnormalCounter), abnormal);
    reload.Reset();
    ExpectNoNamedObject();
}
