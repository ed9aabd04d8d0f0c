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

class TimerObject final : public NamedObject
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Timer;
    static constexpr DWORD kAllAccess = TIMER_ALL_ACCESS;
    struct NotSet {
    };
    static void Initialise(void* state, NotSet) noexcept { MakeState<TimerState>(state); }

    // The parameter, which a named timer's block keeps, says whether it is a manual-reset one.
    TimerObject(std::uint32_t manualReset, NotSet) noexcept
        : NamedObject(kKind, nullptr, kAllAccess), m_waitable(m_own, manualReset != 0, false)
    {
    }
    TimerObject(const std::shared_ptr<NamedBlock>& block, DWORD access) noexcept
        : NamedObject(kKind, block, access),
          m_waitable(*static_cast<TimerState*>(block->State()), block->Parameter() != 0, true)
    {
    }

    TimerWaitable& Timer() noexcept { return m_waitable; }

private:
    Waitable& Wait() noexcept override { return m_waitable; }

    TimerState m_own;
    TimerWaitable m_waitable;
};

} // namespace vlt::posix
