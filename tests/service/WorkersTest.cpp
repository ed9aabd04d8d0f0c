// The worker threads at the edges of a life: the exclusion of the proxy, and stops that come at any moment.
#include "platform/Text.h"
#include "tests/platform/Waiter.h"
#include "tests/service/Lives.h"

#include <algorithm>
#include <cstdlib>

using namespace vlt::test;

namespace
{

const std::string kExclusion = "40 .\\ProcessExclusion.cpp AddExceptProcessIdThread";
const std::string kSuccess = kExclusion + ": success to add exception process ID 4242";
const std::string kRetry = kExclusion + ": retry to add exception process ID after 5 seconds...";
const std::string kRun = "run /GetVlpxPID";
const std::string kAdd = "ASAddRemoveExceptionProcess add=1";

bool Excludes(const Installation& service, const Lines& lines)
{
    return Eventually(kSoon, [&] { return static_cast<bool>(Holds(LinesBy(By::Exclusion, service), lines)); });
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr const char* kCycles = "40";
#else
constexpr const char* kCycles = "200";
#endif

} // namespace

TEST(ServiceExclusion, TheFirstAcceptedProcessEndsTheAttempts)
{
    Installation service;
    service.Instruct("GetVlpxPID", "status", "1");
    service.Instruct("GetVlpxPID", "pid", "4242");
    service.Instruct("ASAddRemoveExceptionProcess", "result", "0");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    ASSERT_TRUE(Excludes(service, {kAdd, kRetry}));
    service.Instruct("ASAddRemoveExceptionProcess", "result", "5");
    EXPECT_TRUE(Excludes(service, {kSuccess}));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Calls("ASAddRemoveExceptionProcess").at(0)["processId"], "4242");
    Lines lines = LinesBy(By::Exclusion, service);
    std::erase_if(lines, [](const std::string& line) { return line.find("VlShareMemory") != std::string::npos; });
    EXPECT_TRUE(Matches(lines, {kExclusion + " Called!", kExclusion + ": success CreateWaitableTimer",
                                kExclusion + ": success SetWaitableTimer", kRun, kAdd, kRetry, kRun, kAdd, kSuccess}));
}

TEST(ServiceExclusion, WhatTheCommandProgramDoesWrongLeadsToTheNextAttempt)
{
    const std::string error = "20 .\\ProcessExclusion.cpp Error: ";
    const struct {
        const char* name;
        const char* command;
        const char* status;
        Lines lines;
    } cases[] = {{"missing", "", "1", {error + "VlUtil::SyncExecuteProcess err(2)", kRetry}},
                 {"fills in nothing", "full/ArdCmdCom.exe", "0", {kRun, kRetry}},
                 {"fills in rubbish", "full/ArdCmdCom.exe", "-1", {kRun, kRetry}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service({.command = each.command});
        service.Instruct("GetVlpxPID", "status", each.status);
        ASSERT_TRUE(service.Start());
        EXPECT_TRUE(Excludes(service, each.lines));
        ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
        ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
        ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
        EXPECT_TRUE(service.Calls("ASAddRemoveExceptionProcess").empty());
    }
}

// The thread waits for the program without limit, the stop for neither.
TEST(ServiceExclusion, ACommandProgramThatNeverEndsDoesNotHoldUpTheStop)
{
    Installation service;
    service.Instruct("GetVlpxPID", "hold", "1");
    service.Instruct("GetVlpxPID", "status", "1");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    ASSERT_TRUE(Excludes(service, {kRun}));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    EXPECT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(LinesBy(By::Exclusion, service).back(), kRun);
    EXPECT_EQ(service.Transcript().back(), "40 .\\SecurityCentre.cpp Executed WSC spyware registration process");
    WriteBytes(service.File("GetVlpxPID.go"), "");
}

// Any other thread that is in the middle of something is waited for.
TEST(ServiceStop, WaitsForAnApplicationOfTheSettings)
{
    Installation service;
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    service.Instruct("ASStartScan", "hold", "1");
    DWORD number = 100;
    ASSERT_TRUE(Eventually(kSoon, [&] {
        service.Set("InOut", ++number);
        return static_cast<bool>(Holds(LinesBy(By::SettingsWatcher, service), {"ASStartScan"}));
    }));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(Eventually(kSoon, [&] { return !service.Calls("ASStopScan").empty(); }));
    EXPECT_TRUE(service.Calls("ASDeInitScan").empty());
    EXPECT_EQ(service.Status().dwCurrentState, DWORD{SERVICE_STOP_PENDING});
    WriteBytes(service.File("ASStartScan.go"), "");
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_TRUE(Holds(service.Transcript(),
                      {"ASStopScan zero=0", "* [Leave] WhenRegChange()", "store.ASDeInitScan", "ASDeInitScan"}));
}

TEST(ServiceStop, ManyLivesThatEndAtAnyMomentLeaveNothingOpen)
{
    Installation service;
    const auto program = service.File("cycles" + service.Program().extension().string());
    for (const auto& entry : std::filesystem::directory_iterator(ProductFolder().parent_path() / "recording")) {
        if (entry.path().filename() == program.filename())
            std::filesystem::copy_file(entry.path(), program);
    }
    service.Instruct("GetVlpxPID", "status", "1");
    service.Instruct("record", "log", vlt::ToNarrow(service.Folder()) + "cycles.log");
    Child cycles = Child::Program(program, {kCycles});
    const std::string result = cycles.ReadLine(150000);
    EXPECT_EQ(result.substr(0, 4), "done") << result;
    EXPECT_EQ(cycles.Wait(kSoon), 0);
    if (const char* const root = std::getenv("VLT_ROOT")) {
        for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(root) / "objects"))
            ADD_FAILURE() << entry.path();
    }
}
