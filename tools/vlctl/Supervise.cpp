// vlctl service supervise: starts the service and starts it again whenever it ends other than by a stop. It does for a
// host without a supervisor what the recovery actions do on Windows, and Restart=on-failure in a unit of systemd.
#include "tools/vlctl/Supervise.h"

#include "platform/Format.h"
#include "platform/Unique.h"
#include "suite/Channel/Interrupt.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
namespace
{

// True when the process has ended, false when the user or the system wants this program to end.
bool AwaitEnd(DWORD processId)
{
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, processId));
    if (!process)
        return true; // it has gone already
    const HANDLE handles[] = {suite::InterruptEvent(), process.Get()};
    return WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0 + 1;
}

} // namespace

void Supervise(const SuperviseSettings& settings)
{
    for (;;) {
        SERVICE_STATUS_PROCESS ended = settings.start();
        if (ended.dwCurrentState == SERVICE_RUNNING) {
            Print(Format("running, process %u\n", ended.dwProcessId));
            if (!AwaitEnd(ended.dwProcessId)) {
                Print("the service goes on without supervision\n");
                return;
            }
            ended = settings.awaitStopped();
        }
        if (ended.dwWin32ExitCode == NO_ERROR) {
            Print("stopped\n");
            return;
        }
        Print(Format("ended with %u; started again in %u seconds\n", ended.dwWin32ExitCode, settings.delaySeconds));
        if (WaitForSingleObject(suite::InterruptEvent(), settings.delaySeconds * 1000) == WAIT_OBJECT_0)
            return;
    }
}

} // namespace vlt::ctl
