// The log of the host's own: the journal where it takes structured messages (/run/systemd/journal/socket),
// else syslog (/dev/log). One datagram for each event, which is dropped rather than waited for.
#pragma once

#include "platform/win32.h"

#include <string>

namespace vlt::posix::service
{

struct SystemLogEntry {
    std::string source;
    std::string text; // cut off after 8 KB
    WORD type = EVENTLOG_INFORMATION_TYPE;
    WORD category = 0;
    DWORD id = 0;
};

// The journal's fields: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER (the source), SYSLOG_FACILITY, and as in the
// application log EVENT_TYPE, EVENT_ID and EVENT_CATEGORY.
void WriteSystemLog(const SystemLogEntry& entry);

// "error", "warning" or "information".
const char* EventTypeName(WORD type) noexcept;

} // namespace vlt::posix::service
