#include "platform/posix/kernel/MutexObject.h"
#include "platform/posix/kernel/ThreadRecord.h"

#include <algorithm>

using namespace vlt::posix;

namespace vlt::posix
{

void OwnedMutexes::Add(std::shared_ptr<MutexWaitable> mutex)
{
    if (std::find(m_mutexes.begin(), m_mutexes.end(), mutex) == m_mutexes.end())
        m_mutexes.push_back(std::move(mutex));
}

void OwnedMutexes::Prune() noexcept
{
    std::erase_if(m_mutexes, [](const auto& mutex) { return !mutex->IsOwnedByCaller(); });
}

void OwnedMutexes::AbandonAll() noexcept
{
    for (const auto& mutex : m_mutexes)
        mutex->Abandon();
    m_mutexes.clear();
}

void MutexWaitable::Own()
{
    ThreadRecord::OfCaller()->Mutexes().Add(shared_from_this());
}

bool MutexWaitable::Release() noexcept
{
    bool last = false;
    if (!m_state.Release(SelfAsOwner(), last))
        return false;
    if (last) {
        // One that is woken in another process may be killed before it takes the mutex: there all look.
        Wake(m_block != nullptr);
        ThreadRecord::OfCaller()->Mutexes().Prune();
    }
    return true;
}

void MutexWaitable::Abandon() noexcept
{
    if (m_state.AbandonOf(SelfAsOwner()))
        Wake(true);
}

void MutexWaitable::Wake(bool all) noexcept
{
    if (m_state.HasWaiters())
        FutexWake(m_state.FutexWord(), all ? INT_MAX : 1, m_block != nullptr);
}

Taken MutexWaitable::TryTake() noexcept
{
    bool first = false;
    const Taken taken = m_state.TryTake(SelfAsOwner(), first);
    if (taken != Taken::No && first)
        Own();
    return taken;
}

// Counted before the look at the owner, as Release looks at the waiters after it: one sees the other.
Taken MutexWaitable::BeginWait(std::uint32_t& ticket) noexcept
{
    m_state.CountWaiter();
    return TryEndWait(0, ticket);
}

Taken MutexWaitable::TryEndWait(std::uint32_t, std::uint32_t& expected) noexcept
{
    MutexOwner owner = NoOwner;
    do {
        if (const Taken taken = TryTake(); taken != Taken::No) {
            m_state.UncountWaiter();
            return taken;
        }
        owner = m_state.Owner(); // to sleep on, so it must be one that the wait cannot take
    } while (!IsOwned(owner));
    expected = static_cast<std::uint32_t>(owner);
    return Taken::No;
}

// A wake-up may have been spent on this wait.
void MutexWaitable::AbandonWait() noexcept
{
    m_state.UncountWaiter();
    if (!IsOwned(m_state.Owner()))
        Wake(m_block != nullptr);
}

} // namespace vlt::posix

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name)
{
    return CreateNamed<MutexObject>(security, name, 0, initialOwner ? SelfAsOwner() : NoOwner);
}

HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCSTR name)
{
    return CreateMutexW(security, initialOwner, WideName(name).Get());
}

HANDLE OpenMutexW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    return OpenNamed<MutexObject>(access, name);
}

HANDLE OpenMutexA(DWORD access, BOOL inherit, LPCSTR name)
{
    return OpenMutexW(access, inherit, WideName(name).Get());
}

// Needs no right of the handle: to own the mutex is enough.
BOOL ReleaseMutex(HANDLE mutex)
{
    const auto object = Pin<MutexObject>(mutex);
    if (!object)
        return FALSE;
    if (object->Mutex().Release())
        return TRUE;
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
}
