// A waitable timer behind a handle.
#pragma once

#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/NamedObject.h"
#include "platform/posix/kernel/TimerState.h"
#include "platform/posix/kernel/Waitable.h"
#include "platform/posix/win32/kernel.h"

namespace vlt::posix
{

class TimerWaitable final : public Waitable
{
public:
    // The state must outlive this. `shared`: it lies in a mapped file.
    TimerWaitable(TimerState& state, bool manualReset, bool shared) noexcept
        : m_state(state), m_manualReset(manualReset), m_shared(shared)
    {
    }

    // A moment of MonotonicNow, and milliseconds.
    void Set(std::uint64_t due, std::uint32_t period) noexcept;
    void Cancel() noexcept;

    Taken TryTake() noexcept override;
    Taken BeginWait(std::uint32_t& ticket) noexcept override;
    Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept override;
    void AbandonWait() noexcept override {} // nobody counts the waits
    FutexRef Futex() const noexcept override { return {m_state.FutexWord(), m_shared}; }
    bool LimitSleep(Deadline& end) noexcept override;

private:
    TimerState& m_state;
    const bool m_manualReset;
    const bool m_shared;
};

// The parameter, which a named timer's block keeps, says whether it is a manual-reset one.
using TimerObject = StateObject<TimerWaitable, TimerState, ObjectKind::Timer, TIMER_ALL_ACCESS>;

} // namespace vlt::posix
