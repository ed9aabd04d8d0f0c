// A semaphore: its count, the waits on it, and the object behind a handle.
#pragma once

#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/NamedObject.h"
#include "platform/posix/kernel/Waitable.h"
#include "platform/posix/win32/kernel.h"

#include <atomic>

namespace vlt::posix
{

// In private memory or in a file mapped by several processes. A process killed in a wait leaves itself
// counted: that costs wake-ups, no more.
struct SemaphoreState {
    explicit SemaphoreState(std::uint32_t initial) noexcept : count(initial) {}

    std::atomic<std::uint32_t> count; // the futex word
    std::atomic<std::uint32_t> waiters{0};
};
static_assert(sizeof(SemaphoreState) == 8 && std::atomic<std::uint32_t>::is_always_lock_free);

class SemaphoreWaitable final : public Waitable
{
public:
    // The state must outlive this. `shared`: it lies in a mapped file.
    SemaphoreWaitable(SemaphoreState& state, std::uint32_t maximum, bool shared) noexcept
        : m_state(state), m_maximum(maximum), m_shared(shared)
    {
    }

    // False when the count would exceed the maximum; it is then as before.
    bool Release(std::uint32_t count, std::uint32_t& previous) noexcept;

    Taken TryTake() noexcept override;
    Taken BeginWait(std::uint32_t& ticket) noexcept override;
    Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept override;
    void AbandonWait() noexcept override;
    FutexRef Futex() const noexcept override
    {
        return {reinterpret_cast<const std::uint32_t*>(&m_state.count), m_shared};
    }

private:
    void Wake(std::uint32_t count) noexcept;

    SemaphoreState& m_state;
    const std::uint32_t m_maximum;
    const bool m_shared;
};

class SemaphoreObject final : public NamedObject
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Semaphore;
    static constexpr DWORD kAllAccess = SEMAPHORE_ALL_ACCESS;
    static void Initialise(void* state, std::uint32_t count) noexcept { MakeState<SemaphoreState>(state, count); }

    // The parameter, which a named semaphore's block keeps, is the maximum.
    SemaphoreObject(std::uint32_t maximum, std::uint32_t initial) noexcept
        : NamedObject(kKind, nullptr, kAllAccess), m_own(initial), m_waitable(m_own, maximum, false)
    {
    }
    SemaphoreObject(const std::shared_ptr<NamedBlock>& block, DWORD access) noexcept
        : NamedObject(kKind, block, access), m_own(0),
          m_waitable(*static_cast<SemaphoreState*>(block->State()), block->Parameter(), true)
    {
    }

    SemaphoreWaitable& Semaphore() noexcept { return m_waitable; }

private:
    Waitable& Wait() noexcept override { return m_waitable; }

    SemaphoreState m_own;
    SemaphoreWaitable m_waitable;
};

} // namespace vlt::posix
