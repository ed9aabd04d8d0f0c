#include "tools/vlctl/EngineReport.h"

#include "suite/Common/HostPath.h"
#include "tools/vlctl/Machine.h"

namespace vlt::ctl
{
namespace
{

std::string TextOf(const Json& object, const char* name)
{
    const auto found = object.find(name);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

EngineReport Unknown(const char* reason)
{
    EngineReport report;
    report.reason = reason;
    return report;
}

} // namespace

scan::EngineSettings EngineSettingsIn(const WString& folder)
{
    return scan::ReadEngineSettings(FileBytes(folder + TEXT("ArdScan.ini")).value_or(std::string()));
}

EngineReport ReadEngineReport(const WString& folder, DWORD serviceProcess)
{
    const scan::EngineSettings settings = EngineSettingsIn(folder);
    if (!settings.writeStatus)
        return Unknown("ArdScan.ini tells the scan library to write no status");
    const WString file = settings.statusFile.empty() ? folder + TEXT("ArdScan.status")
                                                     : scan::ToWindows(scan::ToHostUtf8(settings.statusFile));
    const auto bytes = FileBytes(file);
    if (!bytes)
        return Unknown("the scan library has written no status that can be read");
    Json status = Json::parse(*bytes, nullptr, false);
    if (!status.is_object())
        return Unknown("the scan library's status file is damaged");
    const auto process = status.find("processId");
    if (process == status.end() || *process != serviceProcess)
        return Unknown("the scan library has not reported since the service was started");
    EngineReport report;
    report.mode = TextOf(status, "mode");
    report.reason = TextOf(status, "reason");
    if (const auto folders = status.find("folders"); folders != status.end() && folders->is_array())
        for (const Json& each : *folders)
            if (each.is_string())
                report.folders.push_back(each.get<std::string>());
    report.counters = Json::object();
    for (const auto& [name, value] : status.items())
        if (value.is_number() && name != "processId")
            report.counters[name] = value;
    return report;
}

} // namespace vlt::ctl
