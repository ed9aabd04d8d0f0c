#include "ARDCommon/EventLog.h"

#include "platform/Format.h"
#include "platform/Unique.h"

namespace vlt
{

WString SystemMessage(DWORD code)
{
    LPWSTR text = nullptr;
    // With this flag the buffer argument is the address of the pointer that receives the text.
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
                       MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    const LocalMem owner(text);
    return length == 0 || text == nullptr ? WString() : WString(text, length);
}

WString ErrorText(LPCWSTR operation, DWORD code)
{
    if (code == 0)
        return operation;
    const WString message = SystemMessage(code);
    if (message.empty())
        return Format(TEXT("%s failed: Unknown error %lu"), operation, code);
    return Format(TEXT("%s failed: %s"), operation, message);
}

void LogEvent(LPCWSTR source, LPCWSTR text, DWORD eventId, bool isError)
{
    const EventSource log(RegisterEventSourceW(nullptr, source));
    if (!log)
        return;
    ReportEventW(log.Get(), isError ? EVENTLOG_ERROR_TYPE : EVENTLOG_INFORMATION_TYPE, 0, eventId, nullptr, 1, 0, &text,
                 nullptr);
}

} // namespace vlt
