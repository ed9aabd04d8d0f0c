#include "platform/posix/kernel/MutexState.h"

namespace vlt::posix
{

Taken MutexState::TryTake(MutexOwner self, bool& first) noexcept
{
    MutexOwner owner = m_owner.load();
    first = owner != self;
    if (!first) {
        m_depth.fetch_add(1, std::memory_order_relaxed);
        return Taken::Yes;
    }
    while (!IsOwned(owner)) {
        const MutexOwner before = owner;
        if (m_owner.compare_exchange_weak(owner, self)) {
            m_depth.store(1, std::memory_order_relaxed);
            return before == AbandonedMutex ? Taken::Abandoned : Taken::Yes;
        }
    }
    return Taken::No;
}

bool MutexState::Release(MutexOwner self, bool& last) noexcept
{
    if (m_owner.load() != self)
        return false;
    last = m_depth.load(std::memory_order_relaxed) <= 1;
    if (last)
        m_owner.store(NoOwner);
    else
        m_depth.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

bool MutexState::AbandonOf(MutexOwner thread) noexcept
{
    return m_owner.compare_exchange_strong(thread, AbandonedMutex);
}

bool MutexState::AbandonOfProcess(MutexOwner anyThread) noexcept
{
    MutexOwner owner = m_owner.load();
    while (IsOwned(owner) && InSameProcess(owner, anyThread)) {
        if (m_owner.compare_exchange_weak(owner, AbandonedMutex))
            return true;
    }
    return false;
}

} // namespace vlt::posix
