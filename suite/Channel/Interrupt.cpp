#include "suite/Channel/Interrupt.h"

#include "suite/Channel/Text.h"

namespace vlt::suite
{
namespace
{

constexpr DWORD GraceMilliseconds = 2000;

// Never closed: the handler may run while the program ends.
HANDLE g_interrupt = nullptr;

// Still here after that time, the program is stuck, perhaps in writing to a pipe that nobody reads;
// what is not handled ends it.
BOOL WINAPI OnControl(DWORD)
{
    SetEvent(g_interrupt);
    Sleep(GraceMilliseconds);
    return FALSE;
}

} // namespace

HANDLE InterruptEvent()
{
    if (!g_interrupt) {
        g_interrupt = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (!g_interrupt || !SetConsoleCtrlHandler(OnControl, TRUE))
            FailWith(GetLastError(), "control handler");
    }
    return g_interrupt;
}

} // namespace vlt::suite
