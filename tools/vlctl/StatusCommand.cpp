// vlctl status: is this machine protected, and if not, why.
#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/RollbackFormat.h"
#include "ARDCommon/ScanInfoFormat.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/Channel/ReceiverList.h"
#include "tools/vlctl/EngineReport.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/SecurityCentre.h"
#include "tools/vlctl/ServiceManager.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{

using suite::ReceiverList;

namespace
{

Json TextOrNull(const WString& text)
{
    return text.empty() ? Json() : Json(Utf8(text));
}

Json LastDetection()
{
    const WString file = MachineText(kScanInfoKey, ScanInfoValue::LastDetectFile).value_or(WString());
    const WString threat = MachineText(kScanInfoKey, ScanInfoValue::LastDetectVirus).value_or(WString());
    if (file.empty() && threat.empty())
        return {};
    return {{"time", UtcText(MachineNumber(kScanInfoKey, ScanInfoValue::LastDetectTime).value_or(0))},
            {"threat", TextOrNull(threat)},
            {"file", TextOrNull(file)}};
}

DWORD Stored(const RollbackValue::Number& value)
{
    return MachineNumber(kRollbackKey, value.name).value_or(value.fallback);
}

// As the service counts: zero stands for the default.
DWORD Limit(const RollbackValue::Number& value)
{
    const DWORD limit = Stored(value);
    return limit == 0 ? value.fallback : limit;
}

Json Rollback()
{
    using namespace RollbackValue;
    const bool automatic = Stored(EnableAuto) != 0;
    return {{"automatic", automatic},
            {"probation", automatic && Stored(RollbackFlag) != 0},
            {"normalStops", Stored(NormalCounter)},
            {"normalStopsNeeded", Limit(FreqNormal)},
            {"abnormalEnds", Stored(AbnormalCounter)},
            {"abnormalEndsNeeded", Limit(FreqAbnormal)},
            {"rolledBack", TextOrNull(MachineText(kRollbackKey, RbPatName).value_or(WString()))}};
}

Json Receivers()
{
    Json names = Json::array();
    const std::optional<ReceiverList> list = ReceiverList::Open(kVirusFoundChannel);
    for (const ReceiverList::Entry& entry : list ? list->Entries() : std::vector<ReceiverList::Entry>())
        if (entry.live)
            names.push_back(Utf8(ToWide(entry.name)));
    return names;
}

// What keeps a running service from protecting.
Json Shortcomings(bool monitoring, const EngineReport& engine, const WString& pattern)
{
    Json reasons = Json::array();
    if (!monitoring)
        reasons.push_back("monitoring is switched off: vlctl settings set IOScanE on");
    else if (engine.mode == "unknown")
        reasons.push_back(engine.reason);
    else if (engine.mode != "prevention")
        reasons.push_back("mode is " + engine.mode + (engine.reason.empty() ? "" : ": " + engine.reason));
    if (monitoring && engine.mode != "unknown") {
        if (engine.folders.empty())
            reasons.push_back("no folder is guarded: name some as Folder0, Folder1, ... in ArdScan.ini");
        for (const std::string& folder : engine.folders)
            if (folder.ends_with(" (missing)"))
                reasons.push_back("not guarded: " + folder);
    }
    if (pattern.empty() || pattern == TEXT("0"))
        reasons.push_back("no virus patterns are loaded");
    return reasons;
}

void Status(Run& run)
{
    const bool installed = IsServiceInstalled();
    SERVICE_STATUS_PROCESS service{};
    WString folder;
    if (installed) {
        service = QueryService(OpenInstalledService(SERVICE_QUERY_STATUS));
        folder = ServiceFolder();
    }
    const bool running = installed && service.dwCurrentState == SERVICE_RUNNING;
    EngineReport engine;
    engine.mode = "none";
    if (running)
        engine = ReadEngineReport(folder, service.dwProcessId);
    const bool monitoring = ReadSwitch(SettingId::IOScanE);
    const WString pattern = installed ? IniText(folder, TEXT("Info"), TEXT("Pattern")) : WString();

    Json reasons = Json::array();
    if (!installed)
        reasons.push_back("the service is not installed: vlctl service install");
    else if (!running)
        reasons.push_back(Format("the service is %s: vlctl service start", ServiceStateName(service.dwCurrentState)));
    else
        reasons = Shortcomings(monitoring, engine, pattern);
    run.exit = !running ? ExitNotRunning : reasons.empty() ? ExitDone : ExitNo;

    const char* const protection = !running ? "not running" : reasons.empty() ? "protected" : "degraded";
    const auto info = [&](const WCHAR* name) {
        return installed ? TextOrNull(IniText(folder, TEXT("Info"), name)) : Json();
    };
    PrintAnswer(
        run, {{"protection", protection},
              {"reasons", reasons},
              {"mode", engine.mode},
              {"modeReason", engine.reason.empty() || engine.mode == "unknown" ? Json() : Json(engine.reason)},
              {"monitoring", monitoring},
              {"guarded", engine.folders},
              {"service", installed ? ServiceStateName(service.dwCurrentState) : "not installed"},
              {"processId", running ? Json(service.dwProcessId) : Json()},
              {"engineVersion", info(TEXT("Engine"))},
              {"virusPattern", TextOrNull(pattern)},
              {"spywarePattern", info(TEXT("SpyWare"))},
              {"lastDetection", LastDetection()},
              {"lastScanned", TextOrNull(MachineText(kScanInfoKey, ScanInfoValue::LastScanFile).value_or(WString()))},
              {"counters", engine.counters},
              {"receivers", Receivers()},
              {"securityCentre", ReportedProtection()},
              {"rollback", Rollback()}});
}

} // namespace

void AddStatusCommand(CLI::App& app, Run& run)
{
    Word(app)
        .Verb("status", "Is this machine protected, and if not, why; 1 degraded, 3 not running",
              [&run] { Status(run); })
        .Json(run);
}

} // namespace vlt::ctl
