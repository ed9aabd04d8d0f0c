// Starts, stops and what comes in between, as the service manager, the libraries and the command
// program see them.
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/service/Lives.h"

#include <cstring>

using namespace vlt::test;

namespace
{

// Where only the platform's own manager shows every status report. A report is shown to the manager
// before it is written down.
void ExpectReports(const Installation& service, const Lines& expected)
{
    if (Installation::HasStatusReports()) {
        Eventually(20000, [&] { return service.StatusReports().size() >= expected.size(); });
        EXPECT_TRUE(Matches(service.StatusReports(), expected));
    }
}

const Lines kLife{"2 1 5000 0 0", "4 0 0 5 0", "3 1 6000 5 0", "1 0 0 0 0"};
const Lines kFailedStart{"2 1 5000 0 0", "1 0 0 0 0"};

template <typename Record>
Record FromHexadecimal(const std::string& text)
{
    Record record{};
    EXPECT_EQ(text.size(), 2 * sizeof record);
    auto* bytes = reinterpret_cast<unsigned char*>(&record);
    for (std::size_t i = 0; i < sizeof record && 2 * i + 1 < text.size(); ++i)
        bytes[i] = static_cast<unsigned char>(std::stoul(text.substr(2 * i, 2), nullptr, 16));
    return record;
}

} // namespace

TEST(ServiceLife, StartAndStopDoEverythingInOrder)
{
    Installation service;
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    const SERVICE_STATUS_PROCESS status = service.Status();
    EXPECT_EQ(status.dwControlsAccepted, 5u);
    EXPECT_EQ(status.dwServiceType, 0x110u);
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Status().dwWin32ExitCode, 0u);

    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({StartUpToInit(service), StartAfterInit(), Stop()})));
    ExpectReports(service, kLife);

    // The initialisation record to the byte, but for its two pointers.
    const Record init = service.Calls("ASInitScanW").at(0);
    EXPECT_EQ(init["processId"], std::to_string(status.dwProcessId));
    auto record = FromHexadecimal<AsInitRecord>(init["record"]);
    EXPECT_TRUE(record.appFolder != nullptr && record.appFolder == record.patternFolder);
    AsInitRecord expected{};
    expected.processId = status.dwProcessId;
    expected.appFolder = expected.patternFolder = record.appFolder;
    expected.version = 6;
    EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
    EXPECT_EQ(service.Calls("ASGetPatternInformation").at(0)["record"], std::string(40, '0'));
    EXPECT_TRUE(EventLog().empty());
    EXPECT_FALSE(std::filesystem::exists(service.File("VLNTSRV.LOG")));
    EXPECT_FALSE(std::filesystem::exists(service.File("Log")));
}

TEST(ServiceLife, InterrogateRepeatsTheStatusAndASecondLifeIsLikeTheFirst)
{
    Installation service;
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    EXPECT_TRUE(service.Control(SERVICE_CONTROL_INTERROGATE));
    EXPECT_TRUE(service.Control(SERVICE_CONTROL_INTERROGATE));
    EXPECT_FALSE(service.Control(SERVICE_CONTROL_PAUSE));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    ASSERT_TRUE(service.Live());
    const Lines life = Join({StartUpToInit(service), StartAfterInit(), Stop()});
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({life, life})));
    Lines reports = Join({kLife, kLife});
    reports.insert(reports.begin() + 2, 2, reports[1]);
    ExpectReports(service, reports);
}

// The manager refuses a stop before the service accepts one; a signal gets through.
TEST(ServiceLife, StopDuringStartIsKeptUntilTheStartIsComplete)
{
    if (!Installation::HasStatusReports())
        GTEST_SKIP() << "this manager has no way to send it";
    Installation service;
    service.Instruct("ASInitScanW", "hold", "1");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(Eventually(20000, [&] { return !service.Calls("ASInitScanW").empty(); }));
    SetLastError(0);
    EXPECT_FALSE(service.Control(SERVICE_CONTROL_STOP));
    EXPECT_EQ(GetLastError(), ERROR_SERVICE_CANNOT_ACCEPT_CTRL);
    EXPECT_EQ(Child::Program("/bin/kill", {std::to_string(service.Status().dwProcessId)}).Wait(20000), 0);
    ASSERT_TRUE(service.Reaches(SERVICE_STOP_PENDING));
    WriteBytes(service.File("ASInitScanW.go"), "");
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));

    Lines stop = Stop();
    stop.erase(stop.begin());
    EXPECT_TRUE(
        Matches(LinesBy(By::Rest, service),
                Join({StartUpToInit(service), {"40 .\\crealscan.cpp CRealScan::OnStop()"}, StartAfterInit(), stop})));
    ExpectReports(service, {"2 1 5000 0 0", "3 1 6000 0 0", "4 0 0 5 0", "1 0 0 0 0"});
}

TEST(ServiceLife, ASecondStopChangesNothing)
{
    Installation service;
    service.Instruct("ASStopScan", "hold", "1");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(Eventually(20000, [&] { return !service.Calls("ASStopScan").empty(); }));
    service.Control(SERVICE_CONTROL_STOP); // refused or ignored, as the manager likes
    if (Installation::HasStatusReports()) {
        EXPECT_EQ(Child::Program("/bin/kill", {std::to_string(service.Status().dwProcessId)}).Wait(20000), 0);
    }
    WriteBytes(service.File("ASStopScan.go"), "");
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({StartUpToInit(service), StartAfterInit(), Stop()})));
    ExpectReports(service, kLife);
}

TEST(ServiceLife, AKilledServiceStartsAgain)
{
    if (!Installation::HasStatusReports())
        GTEST_SKIP() << "this manager shows a killed service as running for long";
    Installation service;
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    const vlt::KernelHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, service.Status().dwProcessId));
    ASSERT_TRUE(TerminateProcess(process.Get(), 1));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Status().dwWin32ExitCode, ERROR_PROCESS_ABORTED);
    ASSERT_TRUE(service.Live());
    EXPECT_EQ(service.Status().dwWin32ExitCode, 0u);
    const Lines start = Join({StartUpToInit(service), StartAfterInit()});
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({start, start, Stop()})));
}

// What ends a start: the trace, the calls, the reports, and for an engine that fails the event log.
// Each failed start takes ten seconds: the control thread, which nobody asked to end, is waited for.
struct FailingStart {
    const char* name;
    const char* library; // "" none, "broken" a file that is no library
    int reason;          // of a null handle; -1 when start-up does not get there
    std::size_t begun;   // lines of StartUpToInit that are reached
    Lines trace;         // after them
    const char* engine;  // in the ini file afterwards
};

void PrintTo(const FailingStart& start, std::ostream* out)
{
    *out << start.name;
}

class ServiceStart : public testing::TestWithParam<FailingStart>
{
};

TEST_P(ServiceStart, FailureEndsItAsStoppedWithCodeZero)
{
    const FailingStart& each = GetParam();
    const bool broken = each.library == std::string("broken");
    Installation service({.scan = broken ? "" : each.library});
    if (broken)
        WriteBytes(service.File("ArdScan.dll"), std::string(5000, 'x'));
    WriteBytes(service.File("VLNTSRV.LOG"), "");
    if (each.reason >= 0) {
        service.Instruct("ASInitScanW", "null", "1");
        service.Instruct("ASInitScanW", "reason", std::to_string(each.reason));
    }
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(Eventually(40000, [&] { return service.Calls("run").size() == 2; }));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Status().dwWin32ExitCode, 0u);

    Lines begin = StartUpToInit(service);
    begin.resize(each.begun);
    const Lines end{"20 .\\crealscan.cpp Failed: InitKSAPI()", "40 .\\crealscan.cpp CRealScan::DeInit()"};
    Lines stop = Stop();
    const auto opened = std::find(stop.begin(), stop.end(), "store.ASDeInitScan");
    stop.erase(opened + 1, opened + 4);
    const bool store = each.begun > 3 && each.library != std::string("nodeinit/ArdScan.dll");
    stop.erase(stop.begin(), store ? opened : opened + 1);
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), Join({begin, each.trace, end, stop})));
    ExpectReports(service, kFailedStart);
    EXPECT_EQ(service.Ini("Info", "Engine"), each.engine);
    EXPECT_EQ(service.Ini("Info", "Pattern"), each.reason == 4 ? "0" : "(none)");
    const std::string log = ReadBytes(service.File("VLNTSRV.LOG"));
    EXPECT_EQ(log.substr(log.size() < 17 ? 0 : 17), each.reason >= 0 ? "ASInitScanW Error\r\n\r\n" : "") << log;

    const Value file = ReadValue(kEventSourceKey, "EventMessageFile", 0);
    if (each.reason < 0) {
        EXPECT_EQ(file.type, REG_NONE);
        EXPECT_TRUE(EventLog().empty());
        return;
    }
    // The path is stored with half of its terminator; a Windows registry may complete it.
    EXPECT_EQ(file.type, REG_EXPAND_SZ);
    EXPECT_EQ(file.Text(), service.FolderText() + "VLEVENT.dll");
    const std::size_t odd = 2 * (service.FolderText().size() + 11) + 1;
    EXPECT_TRUE(file.bytes.size() == odd || (!Installation::HasStatusReports() && file.bytes.size() == odd + 2));
    EXPECT_EQ(ReadValue(kEventSourceKey, "TypesSupported", 0).bytes, std::string("\7\0\0\0", 4));
    if (Installation::HasStatusReports()) {
        const std::vector<Record> events = EventLog();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0]["source"], "Veltrano Realtime Service");
        EXPECT_EQ(events[0]["id"], std::to_string(0xA0000003u));
        EXPECT_EQ(events[0]["type"], "error");
        const std::string text = events[0]["strings"];
        EXPECT_NE(text.find("reinstall"), std::string::npos) << text;
    }
}

std::vector<FailingStart> FailingStarts()
{
    const Lines cannotLoad{"20 .\\DynLib.cpp   Failed: LoadLibrary(ArdScan.dll): (0x*)",
                           "20 ..\\..\\ARDCommon\\Quarantine.cpp Failed: LoadLibraryA( ArdScan.dll)",
                           "20 .\\Setreal.cpp Error: QuarantineInitW"};
    const std::string error = "20 .\\Setreal.cpp ASInitScanW Error";
    const std::string end = "40 .\\Setreal.cpp *** ASInitScanW() fialed with an error";
    std::vector<FailingStart> starts{{"BrokenLibrary", "broken", -1, 3, cannotLoad, "(none)"},
                                     {"WithoutASReloadPatternW", "noreload/ArdScan.dll", -1, 7, {}, "(none)"},
                                     {"NoPattern",
                                      "full/ArdScan.dll",
                                      4,
                                      9,
                                      {error, "40 .\\Versions.cpp Write error value to ard-entis.ini Pattern=0",
                                       "40 .\\Versions.cpp Write error value to ard-entis.ini Engine=7.0.0", end},
                                      "7.0.0"}};
    // The rest is the same on a machine where these tests can only run one after the other.
    if (Installation::HasStatusReports()) {
        starts.push_back({"MissingLibrary", "", -1, 3, cannotLoad, "(none)"});
        starts.push_back({"WithoutASDeInitScan", "nodeinit/ArdScan.dll", -1, 7, {}, "(none)"});
        starts.push_back({"OtherReason", "full/ArdScan.dll", 3, 9, {error, end}, "(none)"});
    }
    return starts;
}

INSTANTIATE_TEST_SUITE_P(Failing, ServiceStart, testing::ValuesIn(FailingStarts()),
                         [](const auto& start) { return std::string(start.param.name); });

TEST(ServiceLife, AMissingCommandProgramIsTriedOncePerReport)
{
    Installation service({.command = ""});
    ASSERT_TRUE(service.Live());
    const std::string failed = "20 .\\SecurityCentre.cpp VlUtil::SyncExecuteProcess() failed";
    EXPECT_TRUE(Holds(service.Transcript(),
                      {"40 .\\SecurityCentre.cpp ChangeWSCStatus(1, 0)", failed, "40 .\\Settings.cpp MonitorStart!",
                       "ASDeInitScan", "40 .\\SecurityCentre.cpp ChangeWSCStatus(0, 0)", failed}));
    const Lines all = service.Transcript();
    EXPECT_EQ(std::count(all.begin(), all.end(), failed), 2);
    EXPECT_EQ(all.back(), failed);
}

// Also without a separator at the end of the application's folder.
TEST(ServiceLife, TheOperatorsToolDrivesIt)
{
    Installation service;
    const WString bare = service.Folder().substr(0, service.Folder().size() - 1);
    service.SetBytes(kProductKey, "Application Path", REG_SZ,
                     {reinterpret_cast<const char*>(bare.c_str()), (bare.size() + 1) * sizeof(WCHAR)});
    AsDetectionRecord record{};
    vlt::CopyToField(record.threatName, WStringView(TEXT("Threat")));
    vlt::CopyToField(record.infectedPath, WStringView(TEXT("C:\\x")));
    WriteBytes(service.File("detect.bin"), {reinterpret_cast<const char*>(&record), sizeof record});
    const auto vlctl = [&](const std::vector<std::string>& arguments, int exit) {
        Child child = Child::Program(Installation::Built("vlctl"), arguments);
        std::string output;
        for (std::string line = child.ReadLine(); !line.empty(); line = child.ReadLine())
            output += line + '\n';
        EXPECT_EQ(child.Wait(40000), exit) << output;
        return output;
    };
    const std::string started = vlctl({"service", "start"}, 0);
    EXPECT_EQ(started, "running, process " + std::to_string(service.Status().dwProcessId) + "\n");
    const std::string status = vlctl({"service", "status", "--json"}, 0);
    EXPECT_NE(status.find("\"state\": \"running\""), std::string::npos) << status;
    EXPECT_NE(status.find("\"controlsAccepted\": 5"), std::string::npos) << status;
    EXPECT_TRUE(Eventually(20000, [&] {
        return vlctl({"log", "--json"}, std::filesystem::exists(service.File("Log")) ? 0 : 1).find("\"Threat\"") !=
               std::string::npos;
    }));
    EXPECT_EQ(vlctl({"service", "stop"}, 0), "stopped, exit code 0\n");
    vlctl({"service", "status"}, 1);
    EXPECT_TRUE(Holds(service.Transcript(), {"run /WSCAntiVirusOn", "run /WSCAntiVirusOff"}));
}

TEST(ServiceProgram, RunByHandEndsAtOnceAndTouchesNothing)
{
    Installation service;
    EXPECT_EQ(Child::Program(service.Program()).Wait(40000), 0);
    EXPECT_TRUE(service.Recorded().empty());
    EXPECT_TRUE(service.StatusReports().empty());
}

TEST(ServiceProgram, InstallsAndRemovesItself)
{
    Installation service;
    const auto run = [&](const std::vector<std::string>& arguments) {
        Child child = Child::Program(service.Program(), arguments);
        std::string output;
        for (std::string line = child.ReadLine(); !line.empty(); line = child.ReadLine())
            output += line + '\n';
        EXPECT_EQ(child.Wait(40000), 0);
        return output;
    };
    service.Unregister();
    EXPECT_EQ(run({"-remove"}).substr(0, 20), "OpenService failed: ");
    EXPECT_EQ(run({"x-INSTALL", "-remove"}), "Vlntsrv Created\n");
    EXPECT_EQ(run({"-install"}), "");
    const vlt::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    {
        const vlt::ServiceHandle installed(OpenServiceW(manager.Get(), TEXT("Vlntsrv"), SERVICE_QUERY_CONFIG));
        ASSERT_TRUE(installed);
        alignas(8) BYTE buffer[4096];
        auto* const config = reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer);
        DWORD needed = 0;
        ASSERT_TRUE(QueryServiceConfigW(installed.Get(), config, sizeof buffer, &needed));
        EXPECT_EQ(config->dwServiceType, 0x110u);
        EXPECT_EQ(config->dwStartType, SERVICE_AUTO_START);
        EXPECT_EQ(config->dwErrorControl, SERVICE_ERROR_NORMAL);
        EXPECT_EQ(vlt::ToNarrow(config->lpDisplayName, CP_UTF8), "Veltrano Realtime Service");
        EXPECT_EQ(vlt::ToNarrow(config->lpBinaryPathName, CP_UTF8),
                  service.FolderText() + service.Program().filename().string());
    }
    EXPECT_EQ(run({"-remove"}), "Vlntsrv removed\n");
    EXPECT_FALSE(vlt::ServiceHandle(OpenServiceW(manager.Get(), TEXT("Vlntsrv"), SERVICE_QUERY_CONFIG)));
}
