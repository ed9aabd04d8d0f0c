#include "platform/posix/service/SystemLog.h"

#include "platform/posix/core/Fd.h"

#include <algorithm>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix::service
{
namespace
{

constexpr std::size_t MaxText = 8 * 1024;

int Priority(WORD type) noexcept
{
    return type == EVENTLOG_ERROR_TYPE ? LOG_ERR : type == EVENTLOG_WARNING_TYPE ? LOG_WARNING : LOG_INFO;
}

// A library's function for this would wait for a logger that does not read.
template <std::size_t Size>
bool Send(const char (&path)[Size], const std::string& datagram) noexcept
{
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(Size <= sizeof(address.sun_path));
    std::copy_n(path, Size, address.sun_path);
    return socket && sendto(socket.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                            reinterpret_cast<const sockaddr*>(&address),
                            sizeof(address)) == static_cast<ssize_t>(datagram.size());
}

// Name, line end, length as 64 bits of this machine's order (little-endian on all that we run on), the bytes,
// line end: the form that takes any value.
void AppendField(std::string& datagram, const char* name, const std::string& value)
{
    const std::uint64_t length = value.size();
    datagram += name;
    datagram += '\n';
    datagram.append(reinterpret_cast<const char*>(&length), sizeof(length));
    datagram += value + '\n';
}

std::string ForJournal(const SystemLogEntry& entry, const std::string& text)
{
    std::string datagram;
    AppendField(datagram, "MESSAGE", text);
    AppendField(datagram, "PRIORITY", std::to_string(Priority(entry.type)));
    AppendField(datagram, "SYSLOG_FACILITY", std::to_string(LOG_DAEMON >> 3));
    AppendField(datagram, "SYSLOG_IDENTIFIER", entry.source);
    AppendField(datagram, "EVENT_TYPE", EventTypeName(entry.type));
    AppendField(datagram, "EVENT_ID", std::to_string(entry.id));
    AppendField(datagram, "EVENT_CATEGORY", std::to_string(entry.category));
    return datagram;
}

std::string ForSyslog(const SystemLogEntry& entry, const std::string& text)
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%b %e %T", &local);
    return '<' + std::to_string(LOG_DAEMON | Priority(entry.type)) + '>' + stamp + ' ' + entry.source + '[' +
           std::to_string(getpid()) + "]: " + text;
}

} // namespace

const char* EventTypeName(WORD type) noexcept
{
    return type == EVENTLOG_ERROR_TYPE ? "error" : type == EVENTLOG_WARNING_TYPE ? "warning" : "information";
}

void WriteSystemLog(const SystemLogEntry& entry)
{
    const std::string text = entry.text.substr(0, MaxText);
    if (!Send("/run/systemd/journal/socket", ForJournal(entry, text)))
        Send("/dev/log", ForSyslog(entry, text));
}

} // namespace vlt::posix::service
