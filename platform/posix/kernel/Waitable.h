// What a wait looks at. Each kind of object says how it is satisfied; the waits themselves
// (WaitApi.cpp) only know this interface.
//
// Life of one wait on one object: BeginWait; any number of TryEndWait and sleeps on the futex word;
// then either TryEndWait said true or AbandonWait. No lock is held between these calls, and a process
// may be killed between any two of them.
#pragma once

#include <cstdint>

namespace vlt::posix
{

struct FutexRef {
    const std::uint32_t* word = nullptr;
    bool shared = false; // in a file that other processes map
};

class Waitable
{
public:
    // Satisfied now, and consumed as the kind demands.
    virtual bool TryTake() noexcept = 0;

    // Before the first BeginWait of a wait. False with the last error set: the wait fails.
    virtual bool PrepareWait() noexcept { return true; }

    // True as TryTake; otherwise the wait is counted from here on and `ticket` is its own.
    virtual bool BeginWait(std::uint32_t& ticket) noexcept = 0;
    // True: satisfied, counted no more. False: sleep while the futex word is `expected`.
    virtual bool TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept = 0;
    virtual void AbandonWait() noexcept = 0;

    virtual FutexRef Futex() const noexcept = 0;

    // A descriptor that becomes readable when TryTake becomes true, or -1. A wait for this object
    // alone polls it instead of sleeping on the futex.
    virtual int PollDescriptor() const noexcept { return -1; }

protected:
    ~Waitable() = default;
};

} // namespace vlt::posix
