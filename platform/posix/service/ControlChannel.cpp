#include "platform/posix/service/ControlChannel.h"

#include "platform/posix/core/Error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix::service
{
namespace
{

// Through the folder's descriptor: a socket's own path may have 107 bytes only.
sockaddr_un AddressIn(int folder)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/control", folder);
    return address;
}

long long Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

bool WaitReadable(int socket, int milliseconds)
{
    const long long end = Now() + milliseconds;
    for (;;) {
        const long long left = end - Now();
        pollfd entry{socket, POLLIN, 0};
        const int ready = poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

std::u16string PackArguments(DWORD count, LPCWSTR* arguments)
{
    std::u16string packed;
    for (DWORD i = 0; i < count; ++i) {
        packed += arguments[i];
        packed += u'\0';
    }
    return packed;
}

std::vector<WString> UnpackArguments(const std::u16string& packed)
{
    std::vector<WString> arguments;
    for (std::size_t at = 0; at < packed.size();) {
        arguments.emplace_back(packed.c_str() + at);
        at += arguments.back().size() + 1;
    }
    return arguments;
}

Fd ListenForControls(int folder)
{
    Fd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = AddressIn(folder);
    unlinkat(folder, "control", 0); // of a killed predecessor
    if (!socket || bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket.Get(), 16) != 0)
        return Fd();
    return socket;
}

DWORD SendControl(int folder, DWORD control, SERVICE_STATUS& status)
{
    const Fd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressIn(folder);
    if (!socket || connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
        return errno == ENOENT || errno == ECONNREFUSED ? ERROR_SERVICE_NOT_ACTIVE : ErrorFromErrno(errno);
    const ControlRequest request{ControlMagic, control};
    if (send(socket.Get(), &request, sizeof(request), MSG_NOSIGNAL) != sizeof(request))
        return ERROR_SERVICE_NOT_ACTIVE;
    if (!WaitReadable(socket.Get(), ControlWait))
        return ERROR_SERVICE_REQUEST_TIMEOUT;
    ControlAnswer answer{};
    if (recv(socket.Get(), &answer, sizeof(answer), 0) != sizeof(answer))
        return ERROR_SERVICE_NOT_ACTIVE;
    status = answer.status;
    return answer.error;
}

} // namespace vlt::posix::service
