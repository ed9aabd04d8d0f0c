#include "tools/vlctl/PatternReload.h"

#include "suite/Channel/SharedObjects.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/EventLogTail.h"
#include "tools/vlctl/ServiceManager.h"
#include "tools/vlctl/Text.h"

#include <thread>

namespace vlt::ctl
{

using namespace suite;

namespace
{

constexpr const char* ReloadedEvent = "Event_Reload_ToolTipInfo"; // pulsed after every reload that succeeded
constexpr DWORD LookMilliseconds = 50;
constexpr ULONGLONG AskAgainMilliseconds = 5000;

KernelHandle PrivateEvent()
{
    KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event)
        FailWith(GetLastError(), "event");
    return event;
}

// A pulse is seen only by a wait that is under way, so a thread does nothing but wait. The event is made here
// when the service has not pulsed it yet: then it is this one that the service opens.
class PulseWatch
{
public:
    PulseWatch()
        : m_pulsed(ShareEvent(GlobalName(ReloadedEvent), true)), m_end(PrivateEvent()), m_seen(PrivateEvent()),
          m_thread([this] { Wait(); })
    {
    }
    ~PulseWatch()
    {
        SetEvent(m_end.Get());
        m_thread.join();
    }
    PulseWatch(const PulseWatch&) = delete;
    PulseWatch& operator=(const PulseWatch&) = delete;

    bool SeenWithin(DWORD milliseconds) const
    {
        return WaitForSingleObject(m_seen.Get(), milliseconds) == WAIT_OBJECT_0;
    }

private:
    void Wait()
    {
        const HANDLE handles[] = {m_end.Get(), m_pulsed.Get()};
        if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0 + 1)
            SetEvent(m_seen.Get());
    }

    KernelHandle m_pulsed;
    KernelHandle m_end;
    KernelHandle m_seen;
    std::thread m_thread;
};

bool IsServiceAlive()
{
    return IsServiceInstalled() &&
           QueryService(OpenInstalledService(SERVICE_QUERY_STATUS)).dwCurrentState != SERVICE_STOPPED;
}

// Null when nobody listens, and nobody is about to: the service makes the event on a thread of idle priority, which on
// a busy machine comes long after it has reported to run.
KernelHandle OpenWhenListenedTo(const WString& name, ULONGLONG end)
{
    for (;;) {
        KernelHandle signal(OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
        if (signal)
            return signal;
        if (GetLastError() != ERROR_FILE_NOT_FOUND)
            FailWith(GetLastError(), Printable(name));
        if (GetTickCount64() >= end || !IsServiceAlive())
            return signal;
        Sleep(LookMilliseconds);
    }
}

} // namespace

ReloadResult ReloadPatterns(const char* event, DWORD milliseconds)
{
    const ULONGLONG start = GetTickCount64();
    const WString name = GlobalName(event);
    const KernelHandle signal = OpenWhenListenedTo(name, start + milliseconds);
    if (!signal)
        return {IsServiceAlive() ? ReloadOutcome::NoAnswer : ReloadOutcome::NotRunning, {}};
    EventLogTail log;
    const PulseWatch watch;
    ULONGLONG asked = 0;
    do {
        // The first pulse is lost when the watch was not waiting yet. By the second time it is.
        if (asked == 0 || GetTickCount64() - asked >= AskAgainMilliseconds) {
            asked = GetTickCount64();
            if (!SetEvent(signal.Get()))
                FailWith(GetLastError(), Printable(name));
        }
        if (watch.SeenWithin(LookMilliseconds))
            return {ReloadOutcome::Reloaded, {}};
        if (auto error = log.NextEngineError())
            return {ReloadOutcome::Failed, std::move(*error)};
    } while (GetTickCount64() - start < milliseconds);
    return {ReloadOutcome::NoAnswer, {}};
}

} // namespace vlt::ctl
