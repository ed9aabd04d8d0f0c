// The protocol of a service supervisor: datagrams of "KEY=value" lines to the socket that NOTIFY_SOCKET
// names ("@" for an abstract one). Without one nothing is sent; nothing ever blocks.
//
// When the supervisor has a watchdog (WATCHDOG_USEC, and WATCHDOG_PID is this process), it is fed every half
// of that time, but only after the service has answered a question: a process whose service is stuck is to
// be ended and started anew.
#pragma once

#include "platform/win32.h"

namespace vlt::posix::service
{

class Supervisor
{
public:
    // Takes the watchdog's time out of the environment: programs that the service starts have none.
    Supervisor();

    // Tells what changed from one reported state to the next; in the order of the reports.
    void OnStatus(const SERVICE_STATUS& status) noexcept;

    // Milliseconds until the service is to be asked again, for poll: -1 without a watchdog.
    int UntilQuestion() const noexcept;
    // The service was asked now.
    void OnAsked(bool answered) noexcept;

private:
    bool m_ready = false;
    bool m_stopping = false;
    ULONGLONG m_period = 0; // milliseconds between two questions; 0: no watchdog
    ULONGLONG m_next = 0;   // GetTickCount64 of the next one
};

// What a supervisor is to read from the exit code of a program whose own is 0: 1 when its service stopped with
// an error, which a manager reads from the service's status.
int ExitCodeOfService() noexcept;
void SetExitCodeOfService(DWORD serviceError) noexcept;

} // namespace vlt::posix::service
