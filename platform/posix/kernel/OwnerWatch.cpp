#include "platform/posix/kernel/OwnerWatch.h"

#include <sys/epoll.h>

namespace vlt::posix
{
namespace
{

// Nanoseconds after which a sleeper watches the owner. What a killed owner costs a waiter at most.
constexpr std::uint64_t Moment = 20'000'000;

} // namespace

OwnerWatch::~OwnerWatch()
{
    Forget();
}

bool OwnerWatch::LimitSleep(Deadline& end) noexcept
{
    const MutexOwner owner = m_state.Owner();
    // Not the owner that the sleeper has seen, which may be back, and then be killed, before the sleep begins.
    if (!IsOwned(owner))
        return end.LimitTo(MonotonicNow() + Moment);
    if (InSameProcess(owner, SelfAsOwner()))
        return false;
    const std::lock_guard guard(m_lock);
    if (m_descriptor >= 0 && InSameProcess(m_watched.load(), owner))
        return false;
    const std::uint64_t now = MonotonicNow();
    if (m_seen != owner) {
        m_seen = owner;
        m_seenAt = now;
    }
    if (now - m_seenAt >= Moment) {
        Watch(owner);
        if (m_descriptor >= 0)
            return false;
        m_seenAt = now; // not to be watched: it has ended, or the system lacks the means
    }
    return end.LimitTo(m_seenAt + Moment);
}

bool OwnerWatch::Look() noexcept
{
    const MutexOwner owner = m_state.Owner();
    if (!IsOwned(owner))
        return true;
    if (InSameProcess(owner, SelfAsOwner()))
        return false;
    bool ended = false;
    const Fd process = OpenOwnerProcess(owner, ended);
    return ended && m_state.AbandonOfProcess(owner);
}

void OwnerWatch::Watch(MutexOwner owner) noexcept
{
    Forget();
    bool ended = false;
    Fd process = OpenOwnerProcess(owner, ended);
    if (ended) {
        m_state.AbandonOfProcess(owner);
        FutexWake(m_state.FutexWord(), INT_MAX, true);
    }
    if (!process)
        return;
    m_watched.store(owner);
    if (Reactor::Instance().Register(process.Get(), EPOLLIN | EPOLLONESHOT, *this))
        m_descriptor = process.Release();
}

void OwnerWatch::Forget() noexcept
{
    if (m_descriptor < 0)
        return;
    Reactor::Instance().Unregister(m_descriptor);
    const Fd closing(std::exchange(m_descriptor, -1));
}

void OwnerWatch::OnReady(std::uint32_t) noexcept
{
    m_state.AbandonOfProcess(m_watched.load());
    FutexWake(m_state.FutexWord(), INT_MAX, true);
}

} // namespace vlt::posix
