// Settings that contradict each other, and exclusions that do not do what they seem to.
#include "engine/ArdScanAbi.h"
#include "platform/Format.h"
#include "suite/ArdScan/FileRules.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Doctor.h"
#include "tools/vlctl/ExclusionList.h"
#include "tools/vlctl/ScanDecision.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

#include <cstdlib>

namespace vlt::ctl
{
namespace
{

constexpr const char* kSettings = "settings";

class SettingsView
{
public:
    SettingsView() : m_states(ReadSettings()) {}

    const std::vector<SettingState>& All() const { return m_states; }
    const SettingState& operator[](SettingId id) const { return m_states[static_cast<std::size_t>(id)]; }
    std::uint32_t Number(SettingId id) const
    {
        return static_cast<std::uint32_t>(std::strtoul((*this)[id].value.c_str(), nullptr, 10));
    }
    bool IsSet(SettingId id) const { return std::string_view((*this)[id].from) == "set"; }

private:
    std::vector<SettingState> m_states;
};

void CheckValues(const SettingsView& settings, Findings& findings)
{
    for (const SettingState& state : settings.All()) {
        const std::string name = Utf8(state.setting->name);
        if (std::string_view(state.from) == "invalid")
            findings.Warning(kSettings,
                             name + " is stored in a form that the service passes over: it uses " + state.value,
                             "vlctl settings set " + name + " VALUE");
        else if (state.setting->type != SettingType::Text && settings.Number(state.setting->id) > state.setting->most)
            findings.Warning(kSettings, Format("%s is %s: %s", name, state.value, state.setting->meaning),
                             Format("vlctl settings set %s with 0 to %u", name, state.setting->most));
    }
}

// What is scanned at all, and what becomes of what is found.
void CheckEffect(const SettingsView& settings, Findings& findings)
{
    using enum SettingId;
    if (settings.Number(IOScanE) == 0)
        findings.Problem(kSettings, "monitoring is switched off", "vlctl settings set IOScanE on");
    if ((settings.Number(InOut) & 15) == 0)
        findings.Problem(kSettings, "InOut names no access that is scanned", "vlctl settings set InOut 15");
    else if ((settings.Number(InOut) & (AS_DIRECTION_OPEN | AS_DIRECTION_EXECUTE)) == 0)
        findings.Warning(kSettings, "InOut has neither opening nor execution: nothing can be refused",
                         "vlctl settings set InOut 15");
    if (settings.Number(Action) <= AS_ACTION_PASS)
        findings.Warning(kSettings, "Action lets infected files be used", "vlctl settings set Action 2");
    if (settings.Number(AllFile) == 0 && settings.Number(ActiveScan) == 0 && settings[FileTypeList].value.empty())
        findings.Problem(kSettings, "AllFile and ActiveScan are 0 and FileTypeList is empty: no file is scanned",
                         "vlctl settings set ActiveScan 1");
}

void CheckContradictions(const SettingsView& settings, Findings& findings)
{
    using enum SettingId;
    const auto idle = [&](SettingId id, const char* why, const char* remedy) {
        if (settings.IsSet(id))
            findings.Warning(kSettings, Utf8(Setting(id).name) + " has no effect: " + why, remedy);
    };
    if (!settings[FileTypeList].value.empty() && (settings.Number(AllFile) != 0 || settings.Number(ActiveScan) != 0))
        idle(FileTypeList, "AllFile or ActiveScan stands for every file",
             "set AllFile and ActiveScan to 0, or FileTypeList to ''");
    if (settings.Number(ZipScanOnOff) == 0 && settings.Number(ZipScan) != 0)
        idle(ZipScan, "ZipScanOnOff is 0", "vlctl settings set ZipScanOnOff 1, or ZipScan 0");
    if (settings.Number(Spyware) != 1)
        idle(SpyThreats, "Spyware is not 1", "vlctl settings set Spyware 1");
    if (settings.Number(CleanBackup) != 0 && settings.Number(Action) != AS_ACTION_CLEAN &&
        settings.Number(ActiveAction) == 0)
        idle(CleanBackup, "Action does not clean and ActiveAction is 0", "vlctl settings set CleanBackup 0");
    if (settings.Number(Action2nd) != 2 && settings.Number(Action) == settings.Number(Action2nd))
        findings.Warning(kSettings, "Action2nd repeats what has just failed", "vlctl settings set Action2nd 7");
}

} // namespace

void CheckSettings(const Patient&, Findings& findings)
{
    const SettingsView settings;
    CheckValues(settings, findings);
    CheckEffect(settings, findings);
    CheckContradictions(settings, findings);
}

void CheckExclusions(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "exclusions";
    scan::CExceptionList inForce;
    for (const Exclusion& entry : ReadExclusions()) {
        if (entry.inForce && entry.folder)
            inForce.AddFolder(entry.path);
        if (!entry.inForce && entry.note != kPlaceHolderNote)
            findings.Warning(check, entry.name + " is not in force: " + entry.note,
                             "vlctl exclusions add, which fills the gap, or vlctl registry delete");
        if (entry.inForce && !entry.folder && IsFolder(entry.path))
            findings.Warning(check, entry.name + " is a folder listed as a file: what is in it is scanned",
                             "vlctl exclusions remove it, then vlctl exclusions add --folder");
    }
    for (const std::string& folder : patient.settings.folders)
        if (inForce.Contains(scan::ToWindows(scan::ToHostUtf8(folder)) + TEXT("\\x")))
            findings.Problem(check, "all of the guarded folder " + folder + " is excluded",
                             "vlctl exclusions remove the folder, or take it from ArdScan.ini");
}

} // namespace vlt::ctl
