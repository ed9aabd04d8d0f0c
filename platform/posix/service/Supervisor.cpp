#include "platform/posix/service/Supervisor.h"

#include "platform/posix/core/Fd.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vlt::posix::service
{
namespace
{

void Send(const std::string& text) noexcept
{
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = path ? std::strlen(path) : 0;
    if (length < 2 || length >= sizeof(address.sun_path))
        return;
    std::memcpy(address.sun_path, path, length);
    if (address.sun_path[0] == '@')
        address.sun_path[0] = '\0';
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket)
        sendto(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&address),
               static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
}

const char* TextOf(DWORD state) noexcept
{
    static constexpr const char* Texts[] = {"unknown", "stopped",    "starting", "stopping",
                                            "running", "continuing", "pausing",  "paused"};
    return state < std::size(Texts) ? Texts[state] : Texts[0];
}

std::atomic<int> g_exitCode{0};

} // namespace

Supervisor::Supervisor()
{
    const char* const time = std::getenv("WATCHDOG_USEC");
    const char* const process = std::getenv("WATCHDOG_PID");
    if (time && (!process || std::strtol(process, nullptr, 10) == getpid()))
        m_period = std::strtoull(time, nullptr, 10) / 2000;
    if (m_period != 0)
        m_next = GetTickCount64() + m_period;
    unsetenv("WATCHDOG_USEC");
    unsetenv("WATCHDOG_PID");
}

int Supervisor::UntilQuestion() const noexcept
{
    if (m_period == 0)
        return -1;
    const ULONGLONG now = GetTickCount64();
    return m_next <= now ? 0 : static_cast<int>(std::min<ULONGLONG>(m_next - now, 1'000'000));
}

void Supervisor::OnAsked(bool answered) noexcept
{
    m_next = GetTickCount64() + m_period;
    if (answered)
        Send("WATCHDOG=1\n");
}

int ExitCodeOfService() noexcept
{
    return g_exitCode.load();
}

void SetExitCodeOfService(DWORD serviceError) noexcept
{
    g_exitCode.store(serviceError != 0 ? 1 : 0);
}

void Supervisor::OnStatus(const SERVICE_STATUS& status) noexcept
{
    std::string text = std::string("STATUS=") + TextOf(status.dwCurrentState) + '\n';
    const bool ends = status.dwCurrentState == SERVICE_STOP_PENDING || status.dwCurrentState == SERVICE_STOPPED;
    if (status.dwCurrentState == SERVICE_RUNNING && !std::exchange(m_ready, true))
        text += "READY=1\n";
    if (ends && !std::exchange(m_stopping, true))
        text += "STOPPING=1\n";
    if (status.dwWaitHint != 0) // the supervisor's limit follows the service's own promise
        text += "EXTEND_TIMEOUT_USEC=" + std::to_string(1000ull * status.dwWaitHint) + '\n';
    Send(text);
}

} // namespace vlt::posix::service
