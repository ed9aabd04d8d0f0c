// What a wait looks at. Each kind of object says how it is satisfied; the waits themselves
// (WaitApi.cpp) only know this interface.
//
// Life of one wait on one object: BeginWait; any number of TryEndWait, LimitSleep and sleeps on the futex
// word; then either TryEndWait took the object or AbandonWait. No lock is held between these calls, and a process
// may be killed between any two of them.
#pragma once

#include <cstdint>

namespace vlt::posix
{

class Deadline;

enum class Taken : std::uint8_t {
    No,
    Yes,
    Abandoned, // yes, from an owner that ended without giving it up
};

struct FutexRef {
    const std::uint32_t* word = nullptr;
    bool shared = false; // in a file that other processes map
};

class Waitable
{
public:
    // Satisfied now, and consumed as the kind demands.
    virtual Taken TryTake() noexcept = 0;

    // Before the first BeginWait of a wait. False with the last error set: the wait fails.
    virtual bool PrepareWait() noexcept { return true; }

    // As TryTake; when it took nothing the wait is counted from here on and `ticket` is its own, and the
    // first value that it may sleep on.
    virtual Taken BeginWait(std::uint32_t& ticket) noexcept = 0;
    // Taken: the wait is counted no more. Otherwise: sleep while the futex word is `expected`.
    virtual Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept = 0;
    virtual void AbandonWait() noexcept = 0;

    // For what happens without anybody to wake the sleepers. Before each sleep: brings its end forward to
    // the moment at which the object must be looked at again; true when it did.
    virtual bool LimitSleep(Deadline& end) noexcept
    {
        static_cast<void>(end);
        return false;
    }
    // Before a wait gives up: true when the object has changed, so that it is to be tried once more.
    virtual bool Refresh() noexcept { return false; }

    virtual FutexRef Futex() const noexcept = 0;

    // A descriptor that becomes readable when TryTake becomes true, or -1. A wait for this object
    // alone polls it instead of sleeping on the futex.
    virtual int PollDescriptor() const noexcept { return -1; }

protected:
    ~Waitable() = default;
};

} // namespace vlt::posix
