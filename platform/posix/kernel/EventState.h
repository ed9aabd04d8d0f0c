// The state of an event: 64 bits, in private memory or in a file mapped by several processes.
//
//   bits  0..31  generation, the futex word: grows with every change that may release a waiter
//   bit   32     signalled
//   bits 33..47  waits in progress; at its maximum it stays there
//   bits 48..63  grants of an auto-reset event: bit 48 + i is the grant of generation - i
//
// A manual-reset event releases every wait that began in an earlier generation, so a set or a pulse
// is never missed by a thread that was asleep, however soon the event is reset.
//
// An auto-reset event that is signalled belongs to whoever comes first. What must reach a wait in
// progress and nobody else (a pulse; a second set before the first was taken; a set that a reset
// follows) is a grant: only waits that began before it may take it. There are never more grants than
// waits. A process killed in a wait leaves its count behind; that costs wakes and idle grants, but no
// signal is lost to it, because a first set is never made a grant. One killed between a set and the wake
// that follows it has, for those who are asleep, not set the event; the next set wakes them.
#pragma once

#include <atomic>
#include <bit>
#include <cstdint>

namespace vlt::posix
{

class EventState
{
public:
    enum class Wake { None, One, All };

    explicit EventState(bool signaled = false) noexcept : m_bits(signaled ? SignaledBit : 0) {}

    bool IsSignaled() const noexcept { return (m_bits.load(std::memory_order_acquire) & SignaledBit) != 0; }

    // Takes the signal without waiting.
    bool TryTake(bool manualReset) noexcept;

    // Takes the signal (true), or counts a wait and gives it its ticket.
    bool BeginWait(bool manualReset, std::uint32_t& ticket) noexcept;
    // True: the wait is satisfied and over. Otherwise the word to sleep on still is `expected`.
    bool TryEndWait(bool manualReset, std::uint32_t ticket, std::uint32_t& expected) noexcept;
    // Gives a wait up. The result says whom to wake in its stead: a wake-up may have been spent on it.
    Wake AbandonWait(bool manualReset) noexcept;

    Wake Set(bool manualReset) noexcept;
    Wake Reset(bool manualReset) noexcept;
    Wake Pulse(bool manualReset) noexcept;

    const std::uint32_t* FutexWord() const noexcept { return reinterpret_cast<const std::uint32_t*>(&m_bits); }

private:
    using Bits = std::uint64_t;
    static constexpr Bits SignaledBit = Bits{1} << 32;
    static constexpr Bits WaiterUnit = Bits{1} << 33;
    static constexpr Bits WaiterMask = Bits{0x7FFF} << 33;
    static constexpr unsigned GrantShift = 48;
    static constexpr unsigned GrantCount = 16;

    static std::uint32_t Generation(Bits bits) noexcept { return static_cast<std::uint32_t>(bits); }
    static unsigned Waiters(Bits bits) noexcept { return static_cast<unsigned>((bits & WaiterMask) / WaiterUnit); }
    static unsigned Grants(Bits bits) noexcept { return static_cast<unsigned>(bits >> GrantShift); }
    static Bits WithGrants(Bits bits, unsigned grants) noexcept
    {
        return (bits & ((Bits{1} << GrantShift) - 1)) | (Bits{grants} << GrantShift);
    }
    static Bits NextGeneration(Bits bits, bool grant) noexcept;
    static Bits AddGrant(Bits bits) noexcept;
    static Bits WithoutWaiter(Bits bits) noexcept;
    static Bits TakeFor(Bits bits, std::uint32_t ticket) noexcept;

    std::atomic<Bits> m_bits;
};
static_assert(sizeof(EventState) == 8 && std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::endian::native == std::endian::little, "the futex word is the lower half");

} // namespace vlt::posix
