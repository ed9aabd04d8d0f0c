#include "platform/posix/kernel/EventWaitable.h"

#include "platform/posix/kernel/Futex.h"

namespace vlt::posix
{

void EventWaitable::WakeSleepers(EventState::Wake whom) noexcept
{
    // In a shared event the one that is woken may be killed before it takes the signal, and the
    // others would sleep on: there all look for themselves.
    const bool one = whom == EventState::Wake::One && !m_shared;
    FutexWake(m_state.FutexWord(), one ? 1 : INT_MAX, m_shared);
}

} // namespace vlt::posix
