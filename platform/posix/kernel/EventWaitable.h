// An event state with its wake-ups: the part of an event, a thread or a process that waits see.
#pragma once

#include "platform/posix/kernel/EventState.h"
#include "platform/posix/kernel/Waitable.h"

namespace vlt::posix
{

class EventWaitable : public Waitable
{
public:
    // The state must outlive this. `shared`: it lies in a mapped file.
    EventWaitable(EventState& state, bool manualReset, bool shared) noexcept
        : m_state(state), m_manualReset(manualReset), m_shared(shared)
    {
    }

    Taken TryTake() noexcept override { return Result(m_state.TryTake(m_manualReset)); }
    Taken BeginWait(std::uint32_t& ticket) noexcept override
    {
        return Result(m_state.BeginWait(m_manualReset, ticket));
    }
    Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept override
    {
        return Result(m_state.TryEndWait(m_manualReset, ticket, expected));
    }
    void AbandonWait() noexcept override { Wake(m_state.AbandonWait(m_manualReset)); }
    FutexRef Futex() const noexcept override { return {m_state.FutexWord(), m_shared}; }

    bool IsSignaled() const noexcept { return m_state.IsSignaled(); }
    void Set() noexcept { Wake(m_state.Set(m_manualReset)); }
    void Reset() noexcept { Wake(m_state.Reset(m_manualReset)); }
    void Pulse() noexcept { Wake(m_state.Pulse(m_manualReset)); }

private:
    static Taken Result(bool taken) noexcept { return taken ? Taken::Yes : Taken::No; }
    void Wake(EventState::Wake whom) noexcept
    {
        if (whom != EventState::Wake::None)
            WakeSleepers(whom);
    }
    void WakeSleepers(EventState::Wake whom) noexcept;

    EventState& m_state;
    const bool m_manualReset;
    const bool m_shared;
};

} // namespace vlt::posix
