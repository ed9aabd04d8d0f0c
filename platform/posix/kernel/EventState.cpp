#include "platform/posix/kernel/EventState.h"

namespace vlt::posix
{

// The next generation, in which the grants are one generation older, and perhaps one more.
EventState::Bits EventState::NextGeneration(Bits bits, bool grant) noexcept
{
    unsigned grants = (Grants(bits) << 1) | (grant ? 1 : 0);
    // The oldest grant would fall off: it takes the place of the oldest free generation instead.
    if ((grants >> GrantCount) != 0) {
        unsigned free = GrantCount - 1;
        while (((grants >> free) & 1) != 0)
            --free;
        grants = (grants & 0xFFFF) | (1u << free);
    }
    const Bits rest = bits & ~Bits{0xFFFFFFFF};
    return WithGrants(rest | static_cast<std::uint32_t>(bits + 1), grants);
}

// One more grant for the waits in progress; unchanged when each of them has one already.
EventState::Bits EventState::AddGrant(Bits bits) noexcept
{
    const auto count = static_cast<unsigned>(std::popcount(Grants(bits)));
    return count >= Waiters(bits) || count == GrantCount ? bits : NextGeneration(bits, true);
}

EventState::Bits EventState::WithoutWaiter(Bits bits) noexcept
{
    if ((bits & WaiterMask) != WaiterMask && (bits & WaiterMask) != 0)
        bits -= WaiterUnit;
    unsigned grants = Grants(bits);
    // The oldest go first: they are the ones that nobody living may be left to take.
    while (static_cast<unsigned>(std::popcount(grants)) > Waiters(bits))
        grants &= ~std::bit_floor(grants);
    return WithGrants(bits, grants);
}

// The state after a wait that began at `ticket` has taken what it may; unchanged when that is nothing.
EventState::Bits EventState::TakeFor(Bits bits, std::uint32_t ticket) noexcept
{
    const std::uint32_t age = Generation(bits) - ticket;
    const unsigned reach = age >= GrantCount ? 0xFFFFu : (1u << age) - 1;
    // A grant before the signal, since others may take the signal; the oldest grant before the
    // younger ones, since fewer may take it.
    if (const unsigned mine = Grants(bits) & reach; mine != 0)
        return WithoutWaiter(WithGrants(bits, Grants(bits) & ~std::bit_floor(mine)));
    if ((bits & SignaledBit) != 0)
        return WithoutWaiter(bits & ~SignaledBit);
    return bits;
}

bool EventState::TryTake(bool manualReset) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    while ((bits & SignaledBit) != 0) {
        if (manualReset || m_bits.compare_exchange_weak(bits, bits & ~SignaledBit, std::memory_order_acq_rel))
            return true;
    }
    return false;
}

bool EventState::BeginWait(bool manualReset, std::uint32_t& ticket) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    while (true) {
        if ((bits & SignaledBit) != 0) {
            if (manualReset || m_bits.compare_exchange_weak(bits, bits & ~SignaledBit, std::memory_order_acq_rel))
                return true;
            continue;
        }
        ticket = Generation(bits);
        const Bits next = (bits & WaiterMask) == WaiterMask ? bits : bits + WaiterUnit;
        if (m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel))
            return false;
    }
}

bool EventState::TryEndWait(bool manualReset, std::uint32_t ticket, std::uint32_t& expected) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    while (true) {
        expected = Generation(bits);
        Bits next = bits;
        if (!manualReset)
            next = TakeFor(bits, ticket);
        else if ((bits & SignaledBit) != 0 || expected != ticket)
            next = WithoutWaiter(bits);
        else
            return false;
        if (!manualReset && next == bits)
            return false;
        if (m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel))
            return true;
    }
}

EventState::Wake EventState::AbandonWait(bool manualReset) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    Bits next = 0;
    do {
        next = WithoutWaiter(bits);
    } while (!m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel));
    const bool forOthers = !manualReset && ((next & SignaledBit) != 0 || Grants(next) != 0);
    return forOthers && Waiters(next) != 0 ? Wake::All : Wake::None;
}

EventState::Wake EventState::Set(bool manualReset) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    Bits next = 0;
    do {
        if ((bits & SignaledBit) == 0)
            next = NextGeneration(bits, false) | SignaledBit;
        else
            next = manualReset ? bits : AddGrant(bits);
    } while (!m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel));
    // Also when nothing changed: whoever set it before may have been killed before its wake.
    if (Waiters(next) == 0)
        return Wake::None;
    return manualReset || (bits & SignaledBit) != 0 ? Wake::All : Wake::One;
}

EventState::Wake EventState::Reset(bool manualReset) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    Bits next = 0;
    do {
        if ((bits & SignaledBit) == 0)
            return Wake::None;
        next = (manualReset ? bits : AddGrant(bits)) & ~SignaledBit;
    } while (!m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel));
    return !manualReset && Waiters(next) != 0 ? Wake::All : Wake::None;
}

EventState::Wake EventState::Pulse(bool manualReset) noexcept
{
    Bits bits = m_bits.load(std::memory_order_acquire);
    Bits next = 0;
    do {
        next = bits;
        if (manualReset) {
            next = NextGeneration(next, false);
        } else {
            // A signal that nobody took yet is owed to a wait in progress too.
            if ((next & SignaledBit) != 0)
                next = AddGrant(next);
            next = AddGrant(next);
        }
        next &= ~SignaledBit;
    } while (!m_bits.compare_exchange_weak(bits, next, std::memory_order_acq_rel));
    return Waiters(next) != 0 ? Wake::All : Wake::None;
}

} // namespace vlt::posix
