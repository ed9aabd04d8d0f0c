// vlctl doctor: what is wrong with this machine's protection, and what to do about it.
#include "platform/Format.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Doctor.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/ServiceManager.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace vlt::ctl
{
namespace
{

void CheckService(Patient& patient, Findings& findings)
{
    constexpr const char* check = "service";
    patient.folder = SuiteFolder();
    patient.engine.mode = "none";
    if (!IsServiceInstalled())
        return findings.Problem(check, "not installed", "vlctl service install");
    const WString program = InstalledProgram();
    patient.folder = FolderOf(program);
    const DWORD attributes = GetFileAttributesW(program.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
        findings.Problem(check, "its program is missing: " + Printable(program),
                         "install the program again, or vlctl service remove and install with the right one");
    const SERVICE_STATUS_PROCESS status = QueryService(OpenInstalledService(SERVICE_QUERY_STATUS));
    if (status.dwCurrentState != SERVICE_RUNNING)
        return findings.Problem(
            check, Format("%s, exit code %u", ServiceStateName(status.dwCurrentState), status.dwWin32ExitCode),
            "vlctl service start");
    patient.process = status.dwProcessId;
    patient.engine = ReadEngineReport(patient.folder, patient.process);
    findings.Ok(check, Format("running, process %u", patient.process));
}

// A folder may have two names, as one in drive C: of a machine root has.
bool IsSameFolder(const WString& one, const WString& other)
{
    std::error_code ignored;
    return lstrcmpiW(one.c_str(), other.c_str()) == 0 ||
           std::filesystem::equivalent(scan::ToHost(one), scan::ToHost(other), ignored);
}

void CheckSuiteFolder(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "folders";
    const WString suite = SuiteFolder();
    if (suite.empty())
        findings.Problem(check, "the registry does not say where the suite is: patterns cannot be rolled back",
                         "vlctl registry set HKLM\\Software\\Veltrano\\Ardentis 'Application Path' FOLDER");
    else if (!patient.folder.empty() && !IsSameFolder(suite, patient.folder))
        findings.Warning(check,
                         "the suite is in " + Printable(suite) + ", but its service in " + Printable(patient.folder),
                         "correct the value Application Path of HKLM\\Software\\Veltrano\\Ardentis");
}

void CheckEngine(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "engine";
    const EngineReport& engine = patient.engine;
    if (engine.mode == "none")
        findings.Unknown(check, "the service does not run", "vlctl service start");
    else if (engine.mode == "unknown")
        findings.Unknown(check, engine.reason, "vlctl service stop, vlctl service start, and look again");
    else if (engine.mode == "failed")
        findings.Problem(check, "monitoring failed: " + engine.reason, "vlctl service stop, vlctl service start");
    else
        findings.Ok(check, engine.mode + (engine.reason.empty() ? "" : ": " + engine.reason));
}

using Check = void (*)(const Patient&, Findings&);

void Doctor(Run& run)
{
    Patient patient;
    Findings findings;
    CheckService(patient, findings);
    patient.settings = EngineSettingsIn(patient.folder);
    constexpr std::pair<const char*, Check> checks[] = {
        {"engine", CheckEngine},       {"privilege", CheckPrivilege}, {"kernel", CheckKernel},
        {"guarded", CheckFolders},     {"settings", CheckSettings},   {"exclusions", CheckExclusions},
        {"libraries", CheckLibraries}, {"patterns", CheckPatterns},   {"folders", CheckSuiteFolder},
        {"clock", CheckClock},         {"disk", CheckDisk},           {"stale", CheckStale}};
    for (const auto& [name, check] : checks) {
        try {
            check(patient, findings);
            if (!findings.Has(name))
                findings.Ok(name, "in order");
        } catch (const CommandError& error) {
            findings.Unknown(name, error.what(), error.Advice());
        } catch (const std::exception& error) {
            findings.Unknown(name, error.what(), "try again as root, on Windows as an administrator");
        }
    }
    Json rows = Json::array();
    unsigned bad = 0;
    for (const Finding& each : findings.All()) {
        bad += std::strcmp(each.state, "ok") != 0;
        rows.push_back({{"check", each.check},
                        {"state", each.state},
                        {"detail", each.detail},
                        {"remedy", each.remedy.empty() ? Json() : Json(each.remedy)}});
    }
    if (bad != 0)
        run.exit = ExitNo;
    if (run.json)
        return PrintList(run, "findings", rows);
    // The remedy has a line of its own: together they are too long for one.
    std::string text;
    for (const Finding& each : findings.All()) {
        text += Table({{Painted(Format("%-8s", each.state), each.state), Format("%-10s", each.check),
                        Printable(FromUtf8(each.detail))}});
        if (!each.remedy.empty())
            text += Format("%22s-> %s\n", "", Printable(FromUtf8(each.remedy)));
    }
    Print(text + (bad == 0 ? "nothing found\n" : Format("%u found\n", bad)));
}

} // namespace

bool Findings::Has(const char* check) const
{
    return std::any_of(m_all.begin(), m_all.end(), [&](const Finding& each) { return each.check == check; });
}

void AddDoctorCommand(CLI::App& app, Run& run)
{
    Word(app)
        .Verb("doctor", "Look for what is wrong and say what to do; 1 when anything is", [&run] { Doctor(run); })
        .Json(run);
}

} // namespace vlt::ctl
