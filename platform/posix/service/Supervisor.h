// The readiness protocol of a service supervisor: datagrams of "KEY=value" lines to the socket that
// NOTIFY_SOCKET names ("@" for an abstract one). Without one nothing is sent; nothing ever blocks.
#pragma once

#include "platform/win32.h"

namespace vlt::posix::service
{

class Supervisor
{
public:
    // Tells what changed from one reported state to the next; in the order of the reports.
    void OnStatus(const SERVICE_STATUS& status) noexcept;

private:
    bool m_ready = false;
    bool m_stopping = false;
};

} // namespace vlt::posix::service
