// The application log: <machine root>/eventlog/application.jsonl, one JSON object per line, and the
// system's log.
//
//   {"time":"2026-01-31T12:00:00.123Z","source":"…","type":"error","id":3,"category":0,"pid":1,
//    "strings":["…"]}
//
// A line is appended by one write. At 8 MB the file becomes application.1.jsonl, in place of the one
// before. The system's log gets the event, too (SystemLog.h).
#include "platform/posix/core/Error.h"
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/HandleTable.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/service/SystemLog.h"
#include "platform/win32.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

namespace
{

using namespace vlt::posix;

constexpr off_t RotateAt = 8 * 1024 * 1024;

class EventSourceObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::EventSource;
    explicit EventSourceObject(WStringView source) : Object(kKind), name(source) {}
    const WString name;
};

// Lone surrogates stay what they are: JSON can say them.
void AppendJson(std::string& line, WStringView text)
{
    line += '"';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        const bool pair =
            unit >= 0xD800 && unit < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
        if (pair) {
            line += Utf8FromUtf16(text.substr(i++, 2));
        } else if (unit < 0x20 || unit == 0x7F || (unit >= 0xD800 && unit < 0xE000)) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", unit);
            line += escape;
        } else {
            if (unit == u'"' || unit == u'\\')
                line += '\\';
            line += Utf8FromUtf16(text.substr(i, 1));
        }
    }
    line += '"';
}

std::string Line(WStringView source, WORD type, WORD category, DWORD id, WORD count, LPCWSTR* strings)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char time[32];
    const std::size_t length = strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(time + length, sizeof(time) - length, ".%03ldZ", now.tv_nsec / 1'000'000);
    std::string line = std::string("{\"time\":\"") + time + "\",\"source\":";
    AppendJson(line, source);
    line += std::string(",\"type\":\"") + service::EventTypeName(type) + "\",\"id\":" + std::to_string(id) +
            ",\"category\":" + std::to_string(category) + ",\"pid\":" + std::to_string(getpid()) + ",\"strings\":[";
    for (WORD i = 0; i < count; ++i) {
        if (i != 0)
            line += ',';
        AppendJson(line, strings[i] ? WStringView(strings[i]) : WStringView());
    }
    return line + "]}\n";
}

// The file to append to, after a full one has been put aside. Whoever else does so holds the lock on
// the full one.
Fd OpenLog(const std::string& folder)
{
    const std::string path = folder + "/application.jsonl";
    for (;;) {
        Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
        struct stat opened {
        };
        struct stat named {
        };
        if (!file || fstat(file.Get(), &opened) != 0 || opened.st_size < RotateAt ||
            flock(file.Get(), LOCK_EX | LOCK_NB) != 0)
            return file;
        if (stat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
            rename(path.c_str(), (folder + "/application.1.jsonl").c_str()) != 0)
            return file;
    }
}

bool Append(const std::string& line)
{
    const Fd file = OpenLog(MachineFolder("eventlog"));
    const ssize_t done = file ? write(file.Get(), line.data(), line.size()) : -1;
    if (done >= 0 && done != static_cast<ssize_t>(line.size()))
        errno = ENOSPC;
    return done == static_cast<ssize_t>(line.size());
}

std::string Joined(WORD count, LPCWSTR* strings)
{
    std::string text;
    for (WORD i = 0; i < count && strings[i]; ++i)
        text += (i == 0 ? "" : " ") + Utf8FromUtf16(strings[i]);
    return text;
}

} // namespace

HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source)
{
    if ((server && *server) || !source || !*source) {
        SetLastError(server && *server ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::unique_ptr<EventSourceObject> object(new (std::nothrow) EventSourceObject(source));
    if (!object) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return InsertHandle(std::move(object));
}

BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD eventId, PVOID userSid, WORD stringCount, DWORD dataSize,
                  LPCWSTR* strings, LPVOID data)
{
    const auto source = Pin<EventSourceObject>(log);
    if (!source)
        return FALSE;
    const bool known =
        type == EVENTLOG_ERROR_TYPE || type == EVENTLOG_WARNING_TYPE || type == EVENTLOG_INFORMATION_TYPE;
    if (userSid || dataSize != 0 || data || !known) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    if (stringCount != 0 && !strings) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    service::WriteSystemLog({Utf8FromUtf16(source->name), Joined(stringCount, strings), type, category, eventId});
    if (Append(Line(source->name, type, category, eventId, stringCount, strings)))
        return TRUE;
    SetLastErrorFromErrno();
    return FALSE;
}

BOOL DeregisterEventSource(HANDLE log)
{
    return CloseHandleOfKind(log, MaskOf(ObjectKind::EventSource));
}
