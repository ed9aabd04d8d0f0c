#include "platform/posix/kernel/TimerObject.h"

#include <algorithm>
#include <climits>
#include <time.h>

using namespace vlt::posix;

namespace vlt::posix
{

void TimerWaitable::Set(std::uint64_t due, std::uint32_t period) noexcept
{
    m_state.Set(due, period, MonotonicNow());
    FutexWake(m_state.FutexWord(), INT_MAX, m_shared);
}

void TimerWaitable::Cancel() noexcept
{
    m_state.Cancel(MonotonicNow());
    FutexWake(m_state.FutexWord(), INT_MAX, m_shared);
}

Taken TimerWaitable::TryTake() noexcept
{
    // Most looks find a timer that is not due; one that is not set needs no clock.
    const bool taken = m_state.Due() != 0 && m_state.TryTake(m_manualReset, MonotonicNow());
    return taken ? Taken::Yes : Taken::No;
}

// The generation is read before the due time that LimitSleep goes by: when the timer is set in between,
// the futex word differs and the wait looks again.
Taken TimerWaitable::BeginWait(std::uint32_t& ticket) noexcept
{
    ticket = m_state.Generation();
    return TryTake();
}

Taken TimerWaitable::TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept
{
    expected = m_state.Generation();
    return expected != ticket && m_state.TryTakeOwed(m_manualReset, ticket) ? Taken::Yes : TryTake();
}

bool TimerWaitable::LimitSleep(Deadline& end) noexcept
{
    const std::uint64_t due = m_state.Due();
    return due != 0 && end.LimitTo(due);
}

} // namespace vlt::posix

namespace
{

constexpr std::int64_t TicksPerSecond = 10'000'000; // of 100 ns
constexpr std::int64_t UnixEpoch = 11'644'473'600;  // in seconds since 1601

// The moment of MonotonicNow for a due time. One that is given as a time of day becomes due after what
// lies between then and now, also if the clock is changed meanwhile. Beyond 292 years is never.
std::uint64_t DueMoment(std::int64_t due) noexcept
{
    std::uint64_t ticks = 0; // from now
    if (due < 0) {
        ticks = ~static_cast<std::uint64_t>(due) + 1;
    } else if (due > 0) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        const std::int64_t today = (now.tv_sec + UnixEpoch) * TicksPerSecond + now.tv_nsec / 100;
        ticks = due > today ? static_cast<std::uint64_t>(due - today) : 0;
    }
    constexpr std::uint64_t most = LLONG_MAX;
    const std::uint64_t now = MonotonicNow();
    return now + std::min(ticks, (most - now) / 100) * 100;
}

} // namespace

HANDLE CreateWaitableTimerW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, LPCWSTR name)
{
    return CreateNamed<TimerObject>(security, name, manualReset != FALSE, TimerState::NotSet());
}

HANDLE OpenWaitableTimerW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    return OpenNamed<TimerObject>(access, name);
}

BOOL SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE routine, LPVOID argument,
                      BOOL resume)
{
    static_cast<void>(argument); // the routine's
    const auto object = Pin<TimerObject>(timer);
    if (!object || !object->Grants(TIMER_MODIFY_STATE))
        return FALSE;
    if (!due || period < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (routine || resume) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    object->Get().Set(DueMoment(due->QuadPart), static_cast<std::uint32_t>(period));
    return TRUE;
}

BOOL CancelWaitableTimer(HANDLE timer)
{
    const auto object = Pin<TimerObject>(timer);
    if (!object || !object->Grants(TIMER_MODIFY_STATE))
        return FALSE;
    object->Get().Cancel();
    return TRUE;
}
