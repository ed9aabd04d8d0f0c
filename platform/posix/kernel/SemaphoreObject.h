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
    explicit SemaphoreState(std::uint32_t initial = 0) noexcept : count(initial) {}

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

// The parameter, which a named semaphore's block keeps, is the maximum.
using SemaphoreObject = StateObject<SemaphoreWaitable, SemaphoreState, ObjectKind::Semaphore, SEMAPHORE_ALL_ACCESS>;

} // namespace vlt::posix
