#include "platform/posix/core/Utf.h"
#include "platform/posix/kernel/EventObject.h"

#include <new>

using namespace vlt::posix;

namespace vlt::posix
{

HeldEvent::HeldEvent(HANDLE event) noexcept : m_event(Pin<EventObject>(event))
{
    if (m_event && !m_event->MayModify()) {
        m_event = Pinned<EventObject>();
        SetLastError(ERROR_ACCESS_DENIED);
    }
}

} // namespace vlt::posix

namespace
{

HANDLE Insert(std::unique_ptr<EventObject> event) noexcept
{
    if (!event) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return InsertHandle(std::move(event));
}

template <typename Operation>
BOOL Modify(HANDLE handle, Operation operation) noexcept
{
    const auto event = Pin<EventObject>(handle);
    if (!event)
        return FALSE;
    if (!event->MayModify()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    operation(event->Event());
    return TRUE;
}

} // namespace

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    NamedBlock::Request request{.name = name ? name : u"", .kind = EventObject::kKind};
    if (!AccessFromSecurity(security, request.forEveryone))
        return nullptr;
    if (request.name.empty()) {
        SetLastError(ERROR_SUCCESS);
        return Insert(
            std::unique_ptr<EventObject>(new (std::nothrow) EventObject(manualReset != FALSE, initialState != FALSE)));
    }
    request.parameter = manualReset != FALSE;
    const bool signaled = initialState != FALSE;
    auto block = NamedBlock::Create(
        request, [](void* state, const void* context) { new (state) EventState(*static_cast<const bool*>(context)); },
        &signaled);
    if (!block)
        return nullptr;
    return Insert(std::make_unique<EventObject>(std::move(block), EVENT_ALL_ACCESS));
}

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name)
{
    if (!name)
        return CreateEventW(security, manualReset, initialState, nullptr);
    return CreateEventW(security, manualReset, initialState, Utf16FromUtf8(name).c_str());
}

HANDLE OpenEventW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    if ((access & ~EVENT_ALL_ACCESS) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    if (!name) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto block = NamedBlock::Open(name, EventObject::kKind);
    if (!block)
        return nullptr;
    return Insert(std::make_unique<EventObject>(std::move(block), access));
}

HANDLE OpenEventA(DWORD access, BOOL inherit, LPCSTR name)
{
    return OpenEventW(access, inherit, name ? Utf16FromUtf8(name).c_str() : nullptr);
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
