// The state of a waitable timer, in private memory or in a file mapped by several processes.
//
// Time alone signals it: a timer is signalled when its due time has passed, so it needs no thread, and
// each wait sleeps no longer than until that time. Taking the signal of a synchronisation timer moves
// the due time on to the first period that lies ahead, or clears it: however many were missed, there is
// one signal. Due time, period and generation change together in one 16-byte compare-and-swap, so a
// process may be killed between any two steps.
//
// A wait that was due its release when the timer was set anew is told by `owed`: the last generation
// that ended signalled. Only waits that began in it or before may take that.
#pragma once

#include <atomic>
#include <cstdint>

namespace vlt::posix
{

class TimerState
{
public:
    struct NotSet {
    };
    explicit TimerState(NotSet = {}) noexcept {}

    // Times are those of MonotonicNow.
    // Signalled at `now`; taken as the kind demands.
    bool TryTake(bool manualReset, std::uint64_t now) noexcept;
    // What a wait that began in that generation was owed when the timer was set anew.
    bool TryTakeOwed(bool manualReset, std::uint32_t generation) noexcept;

    // Period in milliseconds, 0 for none.
    void Set(std::uint64_t due, std::uint32_t period, std::uint64_t now) noexcept;
    // A signalled timer stays so, but has no further period.
    void Cancel(std::uint64_t now) noexcept;

    std::uint64_t Due() const noexcept; // 0: not set
    // The futex word; grows whenever the timer is set or cancelled.
    std::uint32_t Generation() const noexcept;
    const std::uint32_t* FutexWord() const noexcept { return &m_bits.generation; }

private:
    struct alignas(16) Bits {
        std::uint64_t due = 0;
        std::uint32_t period = 0;
        std::uint32_t generation = 0;
    };

    // Two reads: a compare-and-swap tells whether they belong together.
    Bits Read() const noexcept;
    bool Replace(const Bits& before, const Bits& after) noexcept;

    Bits m_bits;
    std::atomic<std::uint64_t> m_owed{0}; // 0: nothing; otherwise 1 << 32 and the generation
};
static_assert(sizeof(TimerState) == 32 && alignof(TimerState) == 16);

} // namespace vlt::posix
