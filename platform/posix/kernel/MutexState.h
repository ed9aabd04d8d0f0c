// The state of a mutex, in private memory or in a file mapped by several processes.
#pragma once

#include "platform/posix/kernel/MutexOwner.h"
#include "platform/posix/kernel/Waitable.h"

#include <atomic>
#include <bit>

namespace vlt::posix
{

class MutexState
{
public:
    explicit MutexState(MutexOwner owner) noexcept : m_owner(owner), m_depth(1) {}

    MutexOwner Owner() const noexcept { return m_owner.load(); }
    bool HasWaiters() const noexcept { return m_waiters.load() != 0; }

    // For the calling thread, whose name is `self`. `first`: it did not own the mutex before.
    Taken TryTake(MutexOwner self, bool& first) noexcept;
    // One level; `last` when it was the last one. False: not owned by `self`.
    bool Release(MutexOwner self, bool& last) noexcept;
    // Marks the mutex abandoned if that thread, or any thread of its process, owns it.
    bool AbandonOf(MutexOwner thread) noexcept;
    bool AbandonOfProcess(MutexOwner anyThread) noexcept;

    // A process killed in a wait leaves itself counted: that costs wake-ups, no more.
    void CountWaiter() noexcept { m_waiters.fetch_add(1); }
    void UncountWaiter() noexcept { m_waiters.fetch_sub(1); }

    const std::uint32_t* FutexWord() const noexcept { return reinterpret_cast<const std::uint32_t*>(&m_owner); }

private:
    std::atomic<MutexOwner> m_owner;
    std::atomic<std::uint32_t> m_depth; // the owner's alone; set anew by each
    std::atomic<std::uint32_t> m_waiters{0};
};
static_assert(sizeof(MutexState) == 16 && std::atomic<MutexOwner>::is_always_lock_free);
static_assert(std::endian::native == std::endian::little, "the futex word is the lower half");

} // namespace vlt::posix
