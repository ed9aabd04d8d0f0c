// What the manager and a service's process say to each other.
//
// Starting: a socket pair, whose end the new process finds by number in VLT_SERVICE_CHANNEL. The
// starter sends the arguments; the process sends ChannelReports.
// Controlling: one connection to the service's socket for each control, one request, one answer.
// All of it is packets between processes of one machine, in its byte order.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/win32.h"

#include <string>
#include <vector>

namespace vlt::posix::service
{

struct ChannelReport {
    enum Kind : std::uint32_t { ProcessId = 1, ExecFailed = 2, Connected = 3 };
    std::uint32_t kind;
    std::uint32_t value; // of ProcessId; of ExecFailed: errno
};

struct ControlRequest {
    std::uint32_t magic;
    std::uint32_t control;
};
constexpr std::uint32_t ControlMagic = 0x31435256; // "VRC1"

struct ControlAnswer {
    std::uint32_t error;
    SERVICE_STATUS status;
};
static_assert(sizeof(ControlAnswer) == 32);

constexpr int ControlWait = 30'000; // milliseconds, as the control manager waits
constexpr std::size_t MaxArgumentBytes = 64 * 1024;

// Waits until there is something to read, the peer has gone, or the time is up (false).
bool WaitReadable(int socket, int milliseconds);

// Arguments as one packet of zero-terminated texts.
std::u16string PackArguments(DWORD count, LPCWSTR* arguments);
std::vector<WString> UnpackArguments(const std::u16string& packed);

// The service's socket, in its folder. Empty with errno.
Fd ListenForControls(int folder);

// ERROR_SERVICE_NOT_ACTIVE when nobody listens, ERROR_SERVICE_REQUEST_TIMEOUT when no answer comes.
DWORD SendControl(int folder, DWORD control, SERVICE_STATUS& status);

} // namespace vlt::posix::service
