#include "platform/posix/kernel/SemaphoreObject.h"

#include <algorithm>

using namespace vlt::posix;

namespace vlt::posix
{

bool SemaphoreWaitable::Release(std::uint32_t count, std::uint32_t& previous) noexcept
{
    previous = m_state.count.load();
    do {
        if (previous > m_maximum || count > m_maximum - previous)
            return false;
    } while (!m_state.count.compare_exchange_weak(previous, previous + count));
    Wake(count);
    return true;
}

// In a shared semaphore those that are woken may be killed before they count down, and the others would
// sleep on: there all look for themselves.
void SemaphoreWaitable::Wake(std::uint32_t count) noexcept
{
    if (m_state.waiters.load() != 0)
        FutexWake(Futex().word, m_shared ? INT_MAX : static_cast<int>(std::min<std::uint32_t>(count, INT_MAX)),
                  m_shared);
}

Taken SemaphoreWaitable::TryTake() noexcept
{
    std::uint32_t count = m_state.count.load();
    while (count != 0) {
        if (m_state.count.compare_exchange_weak(count, count - 1))
            return Taken::Yes;
    }
    return Taken::No;
}

// Counted before the look at the count, as Release looks at the waiters after it: one sees the other.
Taken SemaphoreWaitable::BeginWait(std::uint32_t& ticket) noexcept
{
    ticket = 0;
    m_state.waiters.fetch_add(1);
    return TryEndWait(ticket, ticket);
}

Taken SemaphoreWaitable::TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept
{
    static_cast<void>(ticket);
    expected = 0;
    const Taken taken = TryTake();
    if (taken != Taken::No)
        m_state.waiters.fetch_sub(1);
    return taken;
}

// A wake-up may have been spent on this wait.
void SemaphoreWaitable::AbandonWait() noexcept
{
    m_state.waiters.fetch_sub(1);
    if (const std::uint32_t count = m_state.count.load())
        Wake(count);
}

} // namespace vlt::posix

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCWSTR name)
{
    if (maximum <= 0 || initial < 0 || initial > maximum) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return CreateNamed<SemaphoreObject>(security, name, static_cast<std::uint32_t>(maximum),
                                        static_cast<std::uint32_t>(initial));
}

HANDLE CreateSemaphoreA(LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCSTR name)
{
    return CreateSemaphoreW(security, initial, maximum, WideName(name).Get());
}

HANDLE OpenSemaphoreW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    return OpenNamed<SemaphoreObject>(access, name);
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LPLONG previous)
{
    const auto object = Pin<SemaphoreObject>(semaphore);
    if (!object || !object->Grants(SEMAPHORE_MODIFY_STATE))
        return FALSE;
    if (count <= 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::uint32_t before = 0;
    if (!object->Get().Release(static_cast<std::uint32_t>(count), before)) {
        SetLastError(ERROR_TOO_MANY_POSTS);
        return FALSE;
    }
    if (previous)
        *previous = static_cast<LONG>(before);
    return TRUE;
}
