#include "realtime/PatternReload.h"

#include "ARDCommon/CGEvent.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/ScanSetting.h"
#include "ARDCommon/VlDebug.h"
#include "engine/ProcAddress.h"
#include "realtime/EngineFailure.h"
#include "realtime/Settings.h"
#include "realtime/State.h"
#include "realtime/Versions.h"

namespace
{

constexpr const WCHAR* kReloadedEvent = TEXT("Event_Reload_ToolTipInfo");

// `number` tells the kinds apart in the event log.
bool Reload(AsReloadKind kind, int number)
{
    const AsHandle handle = vlt::ScanHandle();
    if (vlt::ScanLibrary().ASReloadPatternW(handle, kind, vlt::ProgramFolder().c_str()) != 0)
        return true;
    VLT_TRACE(20, "Error: ASReloadPattern err(%d)", vlt::ScanLibrary().ASGetLastError(handle));
    ReportEngineFailure(number);
    return false;
}

} // namespace

void ReloadKsapiPattern()
{
    if (!Reload(AS_RELOAD_VIRUS, 2))
        return;
    WritePatternVersion(vlt::ScanHandle());
    ReportProtection();
    PulseNamedEvent(kReloadedEvent);
}

void ReloadSpywarePattern()
{
    if (!Reload(AS_RELOAD_SPYWARE, 3))
        return;
    WriteSpywareVersion(vlt::ScanHandle());
    PulseNamedEvent(kReloadedEvent);
}

void ReloadAllPatterns()
{
    const AsHandle handle = vlt::ScanHandle();
    const auto setPackTrap = vlt::ProcAddress<ASSetPackTrap_t>(vlt::ScanModule(), "ASSetPackTrap");
    if (setPackTrap != nullptr)
        setPackTrap(handle, 0);
    if (!Reload(AS_RELOAD_ALL, 1))
        return;
    if (setPackTrap != nullptr && vlt::GetScanSetting(vlt::SettingId::PackTrap) != 0)
        setPackTrap(handle, 1);
    WritePatternVersion(handle);
    WriteSpywareVersion(handle);
    WriteListPatternVersions(handle);
    ReportProtection();
    PulseNamedEvent(kReloadedEvent);
}

void PulseNamedEvent(LPCWSTR name)
{
    CGEvent event;
    if (!event.Create(name))
        VLT_TRACE(20, "Error: CreateGEvent");
    else if (!event.Pulse())
        VLT_TRACE(20, "Error: PulseGEvent");
    event.Close();
}
