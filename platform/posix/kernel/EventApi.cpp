#include "platform/posix/kernel/EventObject.h"

using namespace vlt::posix;

namespace vlt::posix
{

HeldEvent::HeldEvent(HANDLE event) noexcept : m_event(Pin<EventObject>(event))
{
    if (m_event && !m_event->Grants(EVENT_MODIFY_STATE))
        m_event = Pinned<EventObject>();
}

} // namespace vlt::posix

namespace
{

template <typename Operation>
BOOL Modify(HANDLE handle, Operation operation) noexcept
{
    const auto event = Pin<EventObject>(handle);
    if (!event || !event->Grants(EVENT_MODIFY_STATE))
        return FALSE;
    operation(event->Get());
    return TRUE;
}

} // namespace

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    return CreateNamed<EventObject>(security, name, manualReset != FALSE, initialState != FALSE);
}

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name)
{
    return CreateEventW(security, manualReset, initialState, WideName(name).Get());
}

HANDLE OpenEventW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    return OpenNamed<EventObject>(access, name);
}

HANDLE OpenEventA(DWORD access, BOOL inherit, LPCSTR name)
{
    return OpenEventW(access, inherit, WideName(name).Get());
}

BOOL SetEvent(HANDLE event)
{
    return Modify(event, [](EventWaitable& state) { state.Set(); });
}

BOOL ResetEvent(HANDLE event)
{
    return Modify(event, [](EventWaitable& state) { state.Reset(); });
}

BOOL PulseEvent(HANDLE event)
{
    return Modify(event, [](EventWaitable& state) { state.Pulse(); });
}
