#include "tests/service/Lives.h"

namespace vlt::test
{

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
            "ASGetSpyWarePatternVersion before=0",
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
    for (const Record& record : service.Recorded()) {
        if (record["from"] != "vldbg64")
            lines.push_back(record.Line());
    }
    return lines;
}

} // namespace vlt::test
