// An event behind a handle.
#pragma once

#include "platform/posix/kernel/EventWaitable.h"
#include "platform/posix/kernel/NamedObject.h"
#include "platform/posix/win32/kernel.h"

namespace vlt::posix
{

class EventObject final : public NamedObject
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Event;
    static constexpr DWORD kAllAccess = EVENT_ALL_ACCESS;
    static void Initialise(void* state, bool signaled) noexcept { MakeState<EventState>(state, signaled); }

    // The parameter, which a named event's block keeps, says whether it is a manual-reset one.
    EventObject(std::uint32_t manualReset, bool initialState) noexcept
        : NamedObject(kKind, nullptr, kAllAccess), m_own(initialState), m_waitable(m_own, manualReset != 0, false)
    {
    }
    EventObject(const std::shared_ptr<NamedBlock>& block, DWORD access) noexcept
        : NamedObject(kKind, block, access),
          m_waitable(*static_cast<EventState*>(block->State()), block->Parameter() != 0, true)
    {
    }

    EventWaitable& Event() noexcept { return m_waitable; }

private:
    Waitable& Wait() noexcept override { return m_waitable; }

    EventState m_own;
    EventWaitable m_waitable;
};

// An event held for another part of the layer, independently of its handle: closing the handle ends
// the event's name, but the holder may still signal it.
class HeldEvent
{
public:
    HeldEvent() noexcept = default;
    // Empty with the last error set when it is no event, or one that the handle may not set.
    explicit HeldEvent(HANDLE event) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_event); }
    void Signal() noexcept { m_event->Event().Set(); }

private:
    Pinned<EventObject> m_event;
};

} // namespace vlt::posix
