// updater [ksapi|spyware|all]: has the running service load its patterns anew and waits until it did.
//
// What an updater does after it has put a new pattern file beside the old ones. The service pulses an event
// after each successful reload; a failed one is told in the event log only, so the wait has an end.
#include "docs/examples/OpenToEveryone.h"
#include "platform/Unique.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace
{

constexpr int kAttempts = 10;
constexpr DWORD kPatience = 3000; // ms
constexpr DWORD kHeadStart = 50;  // ms

const WCHAR* EventOf(const std::string& what)
{
    if (what == "ksapi")
        return TEXT("Global\\Event_Reload_Ksapi");
    if (what == "spyware")
        return TEXT("Global\\Event_Reload_Spyware");
    return what == "all" ? TEXT("Global\\Event_Reload_Pattern") : nullptr;
}

unsigned __stdcall RequestSoon(void* request)
{
    Sleep(kHeadStart);
    SetEvent(request);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const WCHAR* const name = EventOf(argc > 1 ? argv[1] : "all");
    if (name == nullptr) {
        std::fputs("updater [ksapi|spyware|all]\n", stderr);
        return 64;
    }
    const vlt::KernelHandle request(OpenEventW(EVENT_MODIFY_STATE, FALSE, name));
    if (!request) {
        std::fprintf(stderr, "the service does not listen (%u)\n", unsigned{GetLastError()});
        return 69;
    }
    OpenToEveryone security;
    const vlt::KernelHandle loaded(CreateEventW(security.Get(), TRUE, FALSE, TEXT("Global\\Event_Reload_ToolTipInfo")));
    // A pulse is kept for nobody: the wait has to begin first. One that was missed all the same costs a
    // second reload.
    for (int i = 0; i < kAttempts; ++i) {
        const vlt::KernelHandle thread(
            reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RequestSoon, request.Get(), 0, nullptr)));
        const DWORD result = WaitForSingleObject(loaded.Get(), kPatience);
        WaitForSingleObject(thread.Get(), INFINITE);
        if (result == WAIT_OBJECT_0) {
            std::puts("loaded");
            return 0;
        }
    }
    std::fputs("the service did not load the patterns; its event log says why\n", stderr);
    return 2;
}
