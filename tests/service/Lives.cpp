#include "tests/service/Lives.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace vlt::test
{
namespace
{

// The first and the last trace line of each worker.
constexpr struct {
    By worker;
    const char* first;
    const char* last;
} kWorkers[] = {
    {By::SettingsWatcher, "[Enter] WhenRegChange()", "[Leave] WhenRegChange()"},
    {By::ExceptionWatcher, "[Enter] WhenExceptionRegChange()", "[Leave] WhenExceptionRegChange()"},
    {By::Exclusion, "AddExceptProcessIdThread Called!", "-"},
    {By::Polling, "Start PollingStatusThread", "End PollingStatusThread"},
    {By::ControlEvents, "Start EventThread", "End EventThread"},
};

// Tells whose a record is. The command program runs for the exclusion, or for whom reported last.
class Owners
{
public:
    By Of(const Record& record)
    {
        if (record["from"] == "ArdCmdCom")
            return record["arguments"].find("GetVlpxPID") != std::string::npos ? By::Exclusion : m_reporting;
        const std::string text = record["call"].starts_with("Trace") ? record["text"] : "";
        if (text == "CRealScan::Init()")
            m_threads.clear();
        for (const auto& each : kWorkers) {
            if (text == each.first)
                m_threads[record["thread"]] = each.worker;
        }
        const auto found = m_threads.find(record["thread"]);
        const By owner = found == m_threads.end() ? By::Rest : found->second;
        if (std::any_of(std::begin(kWorkers), std::end(kWorkers), [&](const auto& each) { return text == each.last; }))
            m_threads.erase(record["thread"]); // the system gives its number to another one
        if (text.starts_with("ChangeWSCStatus("))
            m_reporting = owner;
        return owner;
    }

private:
    std::map<std::string, By> m_threads;
    By m_reporting = By::Rest;
};

} // namespace

Lines LinesBy(By worker, const Installation& service)
{
    Lines lines;
    Owners owners;
    for (const Record& record : service.Recorded()) {
        if (owners.Of(record) == worker)
            lines.push_back(record.Line());
    }
    return lines;
}

Lines StartUpToInit(const Installation& service)
{
    const std::string folder = service.FolderText();
    return {"InitDebugEx settings=" + folder + "ardentis.ini hotSwitch=0 module=VlntSrv one=1",
            "40 .\\crealscan.cpp CRealScan::Init()",
            "50 ..\\..\\ARDCommon\\Quarantine.cpp (ENTER) CQuarantine::QuarantineInitW( pattern path=" + folder +
                ", quarantine folder=" + folder + "Quarantine)",
            "40 .\\DynLib.cpp Success: LoadLibrary(ArdScan.dll): *",
            "store.ASInitScanW appFolder=" + folder,
            "50 ..\\..\\ARDCommon\\Quarantine.cpp (EXIT) CQuarantine::QuarantineInitW()",
            "40 .\\Setreal.cpp GetModuleVersion[VLNTSRV]: 15.0.1.1001",
            "40 .\\Setreal.cpp strAppPath = " + folder,
            "ASInitScanW version=2 onAccess=1 appFolder=" + folder + " patternFolder=" + folder};
}

Lines StartAfterInit()
{
    return {"40 .\\Setreal.cpp ASInitScanW Success",
            "ASGetLastError",
            "ASGetEngineDefaultExtListW size=512 zeroed=true",
            "40 .\\Setreal.cpp Success: WriteEngineDefaultExtList",
            "ASGetEngineInfo",
            "ASGetPatternInformation",
            "ASGetEngineInformation",
            "50 .\\Versions.cpp [Enter] WriteKsapiDll64Version()",
            "40 .\\DynLib.cpp Success: LoadLibrary(*Ksapi64.dll): *",
            "KSGetVersion zeroed=true",
            "40 .\\Versions.cpp version(9, 52, 1200)",
            "50 .\\Versions.cpp [Leave] WriteKsapiDll64Version()",
            "ASGetSpyWarePatternVersion before=0",
            "ASGetPatternVersion stem=vlwhite before=0",
            "ASGetPatternVersion stem=vlblack before=0",
            "40 .\\Setreal.cpp InitializeCriticalSection: *",
            "40 .\\Settings.cpp *** <Vlntsrv> RealtimeSetting()",
            "ASSetExceptionFilePathW path=null",
            "ASSetExceptionFolderPathW path=null",
            "20 ..\\..\\ARDCommon\\DebugLogPath.cpp Error: GetShortPathName ( * )",
            "40 .\\Settings.cpp Not except log file",
            "50 ..\\..\\ARDCommon\\ScanSetting.cpp ***  Entered GetXLStartFolderList()",
            "40 .\\Settings.cpp strVirusForbidList length: 0",
            "40 .\\Settings.cpp strVirusForbidList()",
            "20 .\\Settings.cpp Error: GetRegIntValue err(2)",
            "ASSetConfigW protectedFolders=null sameCallback=true",
            "40 .\\Settings.cpp ASSetConfigW = 1",
            "ASGetLastError",
            "40 .\\Settings.cpp ASGetLastError(0)",
            "40 .\\SecurityCentre.cpp ChangeWSCStatus(1, 0)",
            "run /WSCAntiVirusOn",
            "40 .\\SecurityCentre.cpp Executed WSC virus registration process",
            "run /WSCAntiSpywareOff",
            "40 .\\SecurityCentre.cpp Executed WSC spyware registration process",
            "40 .\\Settings.cpp MonitorStart!",
            "ASStartScan",
            "40 .\\Settings.cpp ASStartScan result = 1",
            "ASGetLastError",
            "40 .\\Settings.cpp ASGetLastError(0)",
            "40 ..\\..\\ARDCommon\\NotifySender.cpp Notify list name : Global\\Event_RTScan_VirusFound_mem_notify_list",
            "40 ..\\..\\ARDCommon\\NotifySender.cpp Event name : Global\\Event_RTScan_VirusFound_evt_notify",
            "40 ..\\..\\ARDCommon\\VlShareMemory.cpp CreateFileMapping success : size = 8320, name = "
            "Global\\Event_RTScan_VirusFound_mem_notify_list",
            "40 .\\FileUpdates.cpp Enter: UpdateARDFiles( 1 )",
            "40 .\\FileUpdates.cpp success InitGEvent for RestartOnAllSessions",
            "40 .\\FileUpdates.cpp Exit: UpdateARDFiles()",
            "40 .\\crealscan.cpp end of CRealScan::Init()"};
}

Lines Stop()
{
    return {"40 .\\crealscan.cpp CRealScan::OnStop()",
            "40 .\\crealscan.cpp CRealScan::DeInit()",
            "40 ..\\..\\ARDCommon\\IpcReceiver.cpp Stop event is pulsed",
            "40 .\\Setreal.cpp ASStopScan",
            "ASStopScan zero=0",
            "40 .\\Setreal.cpp ASStopScan result = 1",
            "store.ASDeInitScan",
            "ASDeInitScan",
            "40 ..\\..\\ARDCommon\\NotifySender.cpp CloseHandle hAddQueue",
            "40 ..\\..\\ARDCommon\\NotifySender.cpp CloseHandle NotifyEvent",
            "40 .\\SecurityCentre.cpp ChangeWSCStatus(0, 0)",
            "run /WSCAntiVirusOff",
            "40 .\\SecurityCentre.cpp Executed WSC virus registration process",
            "run /WSCAntiSpywareOff",
            "40 .\\SecurityCentre.cpp Executed WSC spyware registration process"};
}

Lines Join(std::initializer_list<Lines> parts)
{
    Lines lines;
    for (const Lines& part : parts)
        lines.insert(lines.end(), part.begin(), part.end());
    return lines;
}

Lines WithoutTrace(const Installation& service)
{
    Lines lines;
    Owners owners;
    for (const Record& record : service.Recorded()) {
        if (owners.Of(record) == By::Rest && record["from"] != "vldbg64")
            lines.push_back(record.Line());
    }
    return lines;
}

} // namespace vlt::test
