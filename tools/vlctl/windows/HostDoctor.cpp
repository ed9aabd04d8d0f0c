// Windows: the scan library of this tree detects after a write, through change notifications.
#include "platform/Format.h"
#include "platform/Unique.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Doctor.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{

void CheckPrivilege(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "privilege";
    if (patient.process == 0)
        return;
    const KernelHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, patient.process));
    if (process)
        findings.Ok(check, "this account may work on the service");
    else
        findings.Unknown(check, "this account may not look at the service", "run vlctl doctor as an administrator");
}

void CheckKernel(const Patient&, Findings& findings)
{
    findings.Ok("kernel", "on Windows files are scanned after a write; nothing is refused");
}

void CheckFolders(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "guarded";
    if (patient.settings.folders.empty())
        findings.Problem(check, "ArdScan.ini names no folder to guard",
                         "add Folder0=PATH to its section [Guard] and restart the service");
    const bool network = ReadSwitch(SettingId::MonitorNetwork);
    for (const std::string& folder : patient.settings.folders) {
        const WString path = FromUtf8(folder);
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
            findings.Problem(check, folder + " is missing or no folder",
                             "make it and restart the service, or take it from ArdScan.ini");
        else if (!network && path.size() > 3 && GetDriveTypeW(path.substr(0, 3).c_str()) == DRIVE_REMOTE)
            findings.Warning(check, folder + " is on a network drive, which MonitorNetwork leaves out",
                             "vlctl settings set MonitorNetwork 1");
    }
}

std::vector<StaleObject> StaleObjects()
{
    return {};
}

} // namespace vlt::ctl
