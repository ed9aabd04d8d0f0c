// What the running service does when others change its settings, signal it or take its signals away.
#include "ARDCommon/CipheredValueFormat.h"
#include "platform/Text.h"
#include "tests/platform/Waiter.h"
#include "tests/service/Lives.h"

#include <algorithm>

using namespace vlt::test;

namespace
{

vlt::KernelHandle Event(const char* name)
{
    return vlt::KernelHandle(CreateEventW(nullptr, FALSE, FALSE, vlt::ToWide(name).c_str()));
}

// Of an event that the service listens to.
void Signal(const char* name)
{
    vlt::KernelHandle event;
    ASSERT_TRUE(Eventually(kSoon, [&] {
        event.Reset(OpenEventW(EVENT_MODIFY_STATE, FALSE, vlt::ToWide(name).c_str()));
        return static_cast<bool>(event);
    })) << name;
    SetEvent(event.Get());
}

testing::AssertionResult StartAndRun(Installation& service)
{
    const auto started = service.Start();
    return started ? service.Reaches(SERVICE_RUNNING) : started;
}

testing::AssertionResult Stopped(Installation& service)
{
    service.Control(SERVICE_CONTROL_STOP);
    return service.Reaches(SERVICE_STOPPED);
}

bool Traces(const Installation& service, By worker, const Lines& lines)
{
    return Eventually(kSoon, [&] { return static_cast<bool>(Holds(LinesBy(worker, service), lines)); });
}

// Monitoring validly on, so that reading it is not traced.
void SwitchOn(Installation& service)
{
    const vlt::CipheredBytes on = vlt::EncodeCipheredValue(1, 0);
    service.SetBytes(kScanKey, "IOScanE", REG_BINARY, std::string(on.begin(), on.end()));
}

Lines Protection(bool spyware)
{
    const std::string centre = "40 .\\SecurityCentre.cpp ";
    const std::string state = spyware ? "On" : "Off";
    return {centre + "ChangeWSCStatus(1, " + (spyware ? "1)" : "0)"), "run /WSCAntiVirusOn",
            centre + "Executed WSC virus registration process", "run /WSCAntiSpyware" + state,
            centre + "Executed WSC spyware registration process"};
}

const std::string kEvents = "40 .\\ControlEvents.cpp ";
const std::string kWatchers = "40 .\\RegistryWatchers.cpp ";

} // namespace

TEST(ServiceControl, EachSignalReloadsItsPatternsAndTellsUserPrograms)
{
    Installation service;
    SwitchOn(service);
    service.Set("Spyware", 1);
    ASSERT_TRUE(StartAndRun(service));
    const std::string reload = "ASReloadPatternW kind=";
    const std::string folder = " folder=" + service.FolderText();
    const Lines pattern{"ASGetPatternInformation"};
    const Lines spyware{"ASGetSpyWarePatternVersion before=0"};
    const Lines lists{"ASGetPatternVersion stem=vlwhite before=0", "ASGetPatternVersion stem=vlblack before=0"};
    const struct {
        const char* event;
        Lines lines;
    } cases[] = {
        {"Global\\Event_Reload_Ksapi",
         Join({{kEvents + "Reload KSAPI pattern", reload + '1' + folder}, pattern, Protection(true)})},
        {"Global\\Event_Reload_Spyware", Join({{kEvents + "Reload Spyware pattern", reload + '2' + folder}, spyware})},
        {"Global\\Event_Reload_Pattern", Join({{kEvents + "Reload KSAPI, Spyware and Pack pattern",
                                                "ASSetPackTrap on=0", reload + '7' + folder, "ASSetPackTrap on=1"},
                                               pattern,
                                               spyware,
                                               lists,
                                               Protection(true)})},
        {"Global\\Event_Update_ARDFiles",
         {kEvents + "Update ARD files", "40 .\\FileUpdates.cpp Enter: UpdateARDFiles( 0 )",
          "40 .\\FileUpdates.cpp Exit: UpdateARDFiles()"}},
    };
    const vlt::KernelHandle reloaded(CreateEventW(nullptr, TRUE, FALSE, TEXT("Global\\Event_Reload_ToolTipInfo")));
    service.Instruct("ASGetPatternVersion", "vlwhite", "5");
    Lines expected{kEvents + "Start EventThread"};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.event);
        const Waiter waiter({reloaded.Get()}, kSleepersAreSeen ? kSoon : 0);
        Signal(each.event);
        expected = Join({expected, each.lines});
        EXPECT_TRUE(Traces(service, By::ControlEvents, expected));
        if (each.lines.size() > 3 && kSleepersAreSeen) {
            EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0);
        }
        SetEvent(reloaded.Get()); // for the one that tells nobody
        waiter.Result();
        ResetEvent(reloaded.Get());
    }
    ASSERT_TRUE(Stopped(service));
    expected.push_back(kEvents + "End EventThread");
    EXPECT_TRUE(Matches(LinesBy(By::ControlEvents, service), expected));
    EXPECT_EQ(service.Ini("Info", "WhiteListPattern") + service.Ini("Info", "BlackListPattern"), "50");
    EXPECT_EQ(service.Ini("LastUpdateDate", "WhiteList") + service.Ini("LastUpdateDate", "BlackList"), "");
}

TEST(ServiceControl, AFailedReloadIsReportedAndChangesNothingElse)
{
    Installation service;
    service.Set("PackTrap", 0);
    service.Instruct("ASReloadPatternW", "result", "0");
    ASSERT_TRUE(StartAndRun(service));
    const std::string failed = "20 .\\PatternReload.cpp Error: ASReloadPattern err(0)";
    Lines expected{kEvents + "Start EventThread"};
    for (const char* kind : {"Ksapi", "Spyware", "Pattern"}) {
        Signal((std::string("Global\\Event_Reload_") + kind).c_str());
        expected.push_back(kEvents + "Reload *");
        if (kind == std::string("Pattern"))
            expected.push_back("ASSetPackTrap on=0");
        expected.insert(expected.end(), {"ASReloadPatternW *", "ASGetLastError", failed});
        EXPECT_TRUE(Traces(service, By::ControlEvents, expected));
    }
    // The heuristic stays off when the settings say so.
    service.Instruct("ASReloadPatternW", "result", "2");
    Signal("Global\\Event_Reload_Pattern");
    EXPECT_TRUE(Traces(service, By::ControlEvents, Join({expected, {"ASReloadPatternW *", "run /WSCAntiSpywareOff"}})));
    ASSERT_TRUE(Stopped(service));
    const Lines all = LinesBy(By::ControlEvents, service);
    EXPECT_TRUE(Matches(Lines(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(expected.size())), expected));
    EXPECT_EQ(std::count(all.begin(), all.end(), "ASSetPackTrap on=1"), 0);
    if (Installation::HasStatusReports()) {
        std::string suffixes;
        for (const Record& event : EventLog()) {
            EXPECT_EQ(event["id"] + event["type"], std::to_string(0xA0000003u) + "error");
            const std::string& text = event["strings"];
            suffixes += text.substr(text.find(" ("), 4);
        }
        EXPECT_EQ(suffixes, " (2) (3) (1)");
    }
}

TEST(ServiceControl, SignalsDuringAnActionCountOnceAndTheStopComesFirst)
{
    Installation service;
    service.Instruct("ASReloadPatternW", "hold", "1");
    service.Instruct("ASSetPackTrap", "hold", "1");
    ASSERT_TRUE(StartAndRun(service));
    Signal("Global\\Event_Reload_Ksapi");
    ASSERT_TRUE(Traces(service, By::ControlEvents, {"ASReloadPatternW kind=1 *"}));
    for (int i = 0; i < 3; ++i) {
        Signal("Global\\Event_Reload_Pattern");
        Signal("Global\\Event_Reload_Spyware");
    }
    WriteBytes(service.File("ASReloadPatternW.go"), "");
    ASSERT_TRUE(Traces(service, By::ControlEvents, {"ASSetPackTrap on=0"}));
    Signal("Global\\Event_Reload_Ksapi");
    Signal("Event_EventStop");
    WriteBytes(service.File("ASSetPackTrap.go"), "");
    EXPECT_TRUE(Traces(service, By::ControlEvents, {kEvents + "End EventThread"}));
    Lines kinds;
    for (const Record& call : service.Calls("ASReloadPatternW"))
        kinds.push_back(call["kind"]);
    EXPECT_EQ(kinds, (Lines{"1", "2", "7"}));
    EXPECT_TRUE(Stopped(service)) << "without the thread";
}

TEST(ServiceControl, ChangedSettingsAndExceptionsAreApplied)
{
    Installation service;
    service.SetException("File0", "C:\\first");
    ASSERT_TRUE(StartAndRun(service));
    // Until the watcher has armed its key nothing is heard of.
    DWORD number = 100;
    ASSERT_TRUE(Eventually(kSoon, [&] {
        service.Set("InOut", ++number);
        return static_cast<bool>(Holds(LinesBy(By::SettingsWatcher, service), {"ASStartScan"}));
    }));
    ASSERT_TRUE(Eventually(kSoon, [&] {
        service.SetException("File1", "C:\\x" + std::to_string(++number));
        return static_cast<bool>(
            Holds(LinesBy(By::ExceptionWatcher, service), {"ASSetExceptionFilePathW path=C:\\x*"}));
    }));
    if (kSleepersAreSeen) { // where the registry remembers what changes while the settings are applied
        service.Instruct("ASStartScan", "hold", "1");
        service.SetException("File1", "C:\\second");
        const auto isHeld = [&](By watcher) { return LinesBy(watcher, service).back() == "ASStartScan"; };
        ASSERT_TRUE(Eventually(kSoon, [&] { return isHeld(By::ExceptionWatcher) || isHeld(By::SettingsWatcher); }));
        service.SetException("File1", "C:\\third");
        WriteBytes(service.File("ASStartScan.go"), "");
        EXPECT_TRUE(Traces(service, By::ExceptionWatcher, {"*path=C:\\third", "ASSetConfigW *"}));
    }
    ASSERT_TRUE(Stopped(service));
    const std::string applied = "40 .\\Settings.cpp *** <Vlntsrv> RealtimeSetting()";
    EXPECT_TRUE(
        Holds(LinesBy(By::SettingsWatcher, service),
              {kWatchers + "[Enter] WhenRegChange()", kWatchers + "*** WhenRegChange() - Call RealtimeSetting()",
               applied, "ASSetConfigW *", "run /WSCAntiVirusOn", kWatchers + "[Leave] WhenRegChange()"}));
    const std::string waiting = kWatchers + "Waiting to change Excpetion Key...";
    EXPECT_TRUE(Holds(LinesBy(By::ExceptionWatcher, service),
                      {kWatchers + "[Enter] WhenExceptionRegChange()", waiting,
                       kWatchers + "*** WhenExceptionRegChange() - Call RealtimeSetting()", applied,
                       "ASSetExceptionFilePathW path=C:\\first", "ASSetConfigW *",
                       kWatchers + "[Leave] WhenExceptionRegChange()"}));
}

TEST(ServiceControl, AKeyThatIsMissingOrDeletedIsNotFollowed)
{
    {
        Installation service;
        ASSERT_TRUE(service.Live());
        EXPECT_TRUE(Matches(LinesBy(By::ExceptionWatcher, service),
                            {kWatchers + "[Enter] WhenExceptionRegChange()",
                             kWatchers + "*** WhenExceptionRegChange() - Can not open Exception sub key!"}));
    }
    Installation service;
    service.SetException("File0", "C:\\first");
    ASSERT_TRUE(StartAndRun(service));
    ASSERT_TRUE(Traces(service, By::ExceptionWatcher, {"* Waiting to change Excpetion Key..."}));
    const auto applications = [&] {
        const Lines lines = LinesBy(By::ExceptionWatcher, service);
        return std::count(lines.begin(), lines.end(), "ASStartScan");
    };
    EXPECT_EQ(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kExceptionKey, KEY_WOW64_32KEY, 0), ERROR_SUCCESS);
    // A watcher of its own tells when later changes have been seen.
    service.SetException("File0", "C:\\again");
    ASSERT_TRUE(Eventually(kSoon, [&] {
        service.Set("InOut", GetTickCount64() & 0xFFFF);
        return static_cast<bool>(Holds(LinesBy(By::SettingsWatcher, service), {"*path=C:\\again"}));
    }));
    ASSERT_TRUE(Stopped(service));
    EXPECT_LE(applications(), 3);
}

TEST(ServiceControl, ThePollingPeriodIsTakenAsItStands)
{
    const std::string polling = "40 .\\Polling.cpp ";
    const struct {
        DWORD type;
        std::string bytes;
        const char* minutes;
    } cases[] = {{REG_NONE, "", "60"},
                 {REG_SZ, std::string("7\0\0\0", 4), "60"},
                 {REG_QWORD, std::string("\7\0\0\0\0\0\0\0", 8), "60"},
                 {REG_DWORD, std::string("\7\0\0\0", 4), "7"},
                 {REG_DWORD, "\xFF\xFF\xFF\xFF", "-1"}};
    for (const auto& each : cases) {
        Installation service;
        if (each.type != REG_NONE)
            service.SetBytes(kScanKey, "PollingTime", each.type, each.bytes);
        ASSERT_TRUE(service.Live());
        EXPECT_TRUE(
            Matches(LinesBy(By::Polling, service), {polling + "Start PollingStatusThread",
                                                    polling + "Polling time ( " + std::string(each.minutes) + " )min",
                                                    polling + "End PollingStatusThread"}));
    }
    Installation service;
    SwitchOn(service);
    service.Set("Spyware", 2);
    service.Set("PollingTime", 0);
    ASSERT_TRUE(StartAndRun(service));
    const Lines report = Join({{polling + "Wakeup PollingStatusThread"}, Protection(true)});
    EXPECT_TRUE(Traces(service, By::Polling, Join({{polling + "Polling time ( 0 )min"}, report, report})));
    EXPECT_TRUE(Stopped(service));
}

// Every account may open most of these, before the service does and for as long as it lives.
TEST(ServiceControl, StrangersWhoSignalAndTakeSignalsDoNotHoldUpTheStop)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "whoever waited first is served first there, every time";
    const vlt::KernelHandle enough(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const vlt::KernelHandle eventStop = Event("Event_EventStop");
    const vlt::KernelHandle pollingStop = Event("EVENT_POLLINGSTOP");
    const TestThread thief([&] {
        const HANDLE handles[] = {enough.Get(), eventStop.Get(), pollingStop.Get()};
        while (WaitForMultipleObjects(3, handles, FALSE, kSoon * 3) != WAIT_OBJECT_0) {
        }
        return 0u;
    });
    thief.AwaitAsleep();
    const TestThread storm([&] {
        std::vector<vlt::KernelHandle> events;
        for (const char* name : {"Ksapi", "Spyware", "Pattern"})
            events.push_back(Event((std::string("Global\\Event_Reload_") + name).c_str()));
        events.push_back(Event("Global\\Event_Update_ARDFiles"));
        while (WaitForSingleObject(enough.Get(), 1) == WAIT_TIMEOUT) {
            for (const vlt::KernelHandle& event : events)
                SetEvent(event.Get());
        }
        return 0u;
    });
    {
        Installation service;
        EXPECT_TRUE(StartAndRun(service));
        EXPECT_TRUE(Traces(service, By::ControlEvents, {"ASReloadPatternW kind=1 *", "ASReloadPatternW kind=1 *"}));
        EXPECT_TRUE(Stopped(service));
        EXPECT_TRUE(Holds(LinesBy(By::ControlEvents, service), {kEvents + "End EventThread"}));
    }
    SetEvent(enough.Get());
}

// Names that are taken by something else cost the service that thread only.
TEST(ServiceControl, AnEventThatCannotBeMadeLeavesTheServiceRunning)
{
    const vlt::KernelHandle mutex(CreateMutexW(nullptr, FALSE, TEXT("Global\\Event_Reload_Spyware")));
    const vlt::KernelHandle other(CreateMutexW(nullptr, FALSE, TEXT("EVENT_POLLINGSTOP")));
    Installation service;
    ASSERT_TRUE(service.Live());
    EXPECT_TRUE(Matches(LinesBy(By::ControlEvents, service),
                        {kEvents + "Start EventThread", "20 .\\ControlEvents.cpp Error: CreateEvent err(6)"}));
    EXPECT_TRUE(Holds(LinesBy(By::Polling, service), {"* End PollingStatusThread"}));
}
