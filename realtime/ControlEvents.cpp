#include "realtime/ControlEvents.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "ARDCommon/VlDebug.h"
#include "realtime/FileUpdates.h"
#include "realtime/PatternReload.h"

#include <array>
#include <iterator>

namespace
{

struct ControlEvent {
    const WCHAR* name;
    const char* trace;
    void (*action)();
};

// In the order of their precedence, after the stop.
constexpr ControlEvent kEvents[] = {
    {TEXT("Event_Reload_Ksapi"), "Reload KSAPI pattern", ReloadKsapiPattern},
    {TEXT("Event_Reload_Spyware"), "Reload Spyware pattern", ReloadSpywarePattern},
    {TEXT("Event_Reload_Pattern"), "Reload KSAPI, Spyware and Pack pattern", ReloadAllPatterns},
    {TEXT("Event_Update_ARDFiles"), "Update ARD files", [] { UpdateARDFiles(0); }},
};
constexpr DWORD kCount = 1 + std::size(kEvents);

bool CreateEvents(std::array<vlt::KernelHandle, kCount>& events)
{
    const DefSecAttr security;
    events[0].Reset(CreateEventA(security.Get(), FALSE, FALSE, "Event_EventStop"));
    for (DWORD i = 1; i < kCount && events[i - 1]; ++i) {
        WCHAR name[MAX_PATH];
        vlt::GetGlobalName(kEvents[i - 1].name, name, MAX_PATH - 1);
        events[i].Reset(CreateEventW(security.Get(), FALSE, FALSE, name));
    }
    if (events.back())
        return true;
    VLT_TRACE(20, "Error: CreateEvent err(%d)", GetLastError());
    return false;
}

// Signals that never end must not keep a thread whose stop signal another program took.
void Serve(const CWorkerThread& self, const std::array<vlt::KernelHandle, kCount>& events)
{
    std::array<HANDLE, kCount> handles;
    for (DWORD i = 0; i < kCount; ++i)
        handles[i] = events[i].Get();
    for (;;) {
        const DWORD result = WaitForMultipleObjectsEx(kCount, handles.data(), FALSE, INFINITE, FALSE);
        if (result == WAIT_OBJECT_0 || result == WAIT_FAILED || !self.IsToRun())
            return;
        const DWORD index = result - WAIT_OBJECT_0;
        if (index < kCount) {
            VLT_TRACE(40, kEvents[index - 1].trace);
            kEvents[index - 1].action();
        }
    }
}

} // namespace

unsigned EventThread(CWorkerThread& self)
{
    VLT_TRACE(40, "Start EventThread");
    std::array<vlt::KernelHandle, kCount> events;
    if (!CreateEvents(events))
        return 0;
    self.SetWakeEvent(events[0].Get());
    Serve(self, events);
    self.SetWakeEvent(nullptr);
    for (vlt::KernelHandle& event : events)
        event.Reset();
    VLT_TRACE(40, "End EventThread");
    return 0;
}
