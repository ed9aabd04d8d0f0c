#include "platform/posix/kernel/TimerState.h"

#include <bit>

namespace vlt::posix
{
namespace
{

__extension__ typedef unsigned __int128 __attribute__((may_alias)) Wide;

constexpr std::uint64_t OwedUnit = std::uint64_t{1} << 32;
constexpr std::uint64_t NanosecondsPerMillisecond = 1'000'000;

bool IsSignaled(std::uint64_t due, std::uint64_t now) noexcept
{
    return due != 0 && due <= now;
}

// When a signal that is taken now comes again; 0 for never. Any period is below 2^52 nanoseconds.
std::uint64_t NextDue(std::uint64_t due, std::uint32_t period, std::uint64_t now) noexcept
{
    const std::uint64_t step = period * NanosecondsPerMillisecond;
    return step == 0 ? 0 : due + ((now - due) / step + 1) * step;
}

} // namespace

TimerState::Bits TimerState::Read() const noexcept
{
    Bits bits;
    bits.generation = __atomic_load_n(&m_bits.generation, __ATOMIC_SEQ_CST);
    bits.period = __atomic_load_n(&m_bits.period, __ATOMIC_SEQ_CST);
    bits.due = __atomic_load_n(&m_bits.due, __ATOMIC_SEQ_CST);
    return bits;
}

// Built for processors with the 16-byte instruction, which is every x64 one of the last two decades;
// the compiler's general form would call a library for it.
bool TimerState::Replace(const Bits& before, const Bits& after) noexcept
{
    return __sync_bool_compare_and_swap(reinterpret_cast<Wide*>(&m_bits), std::bit_cast<Wide>(before),
                                        std::bit_cast<Wide>(after));
}

std::uint64_t TimerState::Due() const noexcept
{
    return __atomic_load_n(&m_bits.due, __ATOMIC_SEQ_CST);
}

std::uint32_t TimerState::Generation() const noexcept
{
    return __atomic_load_n(&m_bits.generation, __ATOMIC_SEQ_CST);
}

bool TimerState::TryTake(bool manualReset, std::uint64_t now) noexcept
{
    while (true) {
        const Bits bits = Read();
        if (!IsSignaled(bits.due, now))
            return false;
        if (manualReset)
            return true;
        Bits next = bits;
        next.due = NextDue(bits.due, bits.period, now);
        if (Replace(bits, next))
            return true;
    }
}

bool TimerState::TryTakeOwed(bool manualReset, std::uint32_t generation) noexcept
{
    std::uint64_t owed = m_owed.load();
    while (owed != 0 && static_cast<std::int32_t>(static_cast<std::uint32_t>(owed) - generation) >= 0) {
        if (manualReset || m_owed.compare_exchange_weak(owed, 0))
            return true;
    }
    return false;
}

void TimerState::Set(std::uint64_t due, std::uint32_t period, std::uint64_t now) noexcept
{
    Bits bits;
    do {
        bits = Read();
    } while (!Replace(bits, Bits{due, period, bits.generation + 1}));
    // After the change: a process killed here has set the timer just before it became due.
    if (IsSignaled(bits.due, now))
        m_owed.store(OwedUnit | bits.generation);
}

void TimerState::Cancel(std::uint64_t now) noexcept
{
    Bits bits;
    std::uint64_t due = 0;
    do {
        bits = Read();
        due = IsSignaled(bits.due, now) ? bits.due : 0;
    } while (!Replace(bits, Bits{due, 0, bits.generation + 1}));
}

} // namespace vlt::posix
