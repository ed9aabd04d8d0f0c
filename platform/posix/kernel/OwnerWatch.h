// Tells the sleepers of a shared mutex when its owner's process has ended without giving it up.
//
// The kernel tells it through a descriptor of the process, which the reactor watches; nobody polls. Each
// process that waits watches for itself, so it does not matter which other waiter is killed. A sleeper
// watches only an owner that keeps the mutex for longer than a moment: its first sleep ends after that
// moment, and a mutex that goes from hand to hand never pays for a descriptor.
//
// The end of the process also wakes those that it would have woken itself, had it not been killed
// between giving the mutex up and its wake.
#pragma once

#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/MutexState.h"
#include "platform/posix/kernel/Reactor.h"

#include <mutex>

namespace vlt::posix
{

class OwnerWatch final : private ReactorClient
{
public:
    // The state must outlive this.
    explicit OwnerWatch(MutexState& state) noexcept : m_state(state) {}
    ~OwnerWatch();
    OwnerWatch(const OwnerWatch&) = delete;
    OwnerWatch& operator=(const OwnerWatch&) = delete;

    // As Waitable::LimitSleep.
    bool LimitSleep(Deadline& end) noexcept;
    // Marks the mutex abandoned if its owner's process has ended; true when the mutex is free now.
    bool Look() noexcept;

private:
    void Watch(MutexOwner owner) noexcept;
    void Forget() noexcept;
    void OnReady(std::uint32_t epollEvents) noexcept override;

    MutexState& m_state;
    std::mutex m_lock;                          // of the following; never taken by the reactor
    MutexOwner m_seen = NoOwner;                // kept a sleeper waiting
    std::uint64_t m_seenAt = 0;                 // since then
    int m_descriptor = -1;                      // of the watched process
    std::atomic<MutexOwner> m_watched{NoOwner}; // changes only while the reactor does not know this
};

} // namespace vlt::posix
