// An event behind a handle.
#pragma once

#include "platform/posix/kernel/EventWaitable.h"
#include "platform/posix/kernel/NamedObject.h"
#include "platform/posix/win32/kernel.h"

namespace vlt::posix
{

// The parameter, which a named event's block keeps, says whether it is a manual-reset one.
using EventObject = StateObject<EventWaitable, EventState, ObjectKind::Event, EVENT_ALL_ACCESS>;

// An event held for another part of the layer, independently of its handle: closing the handle ends
// the event's name, but the holder may still signal it.
class HeldEvent
{
public:
    HeldEvent() noexcept = default;
    // Empty with the last error set when it is no event, or one that the handle may not set.
    explicit HeldEvent(HANDLE event) noexcept;

    explicit operator bool() const noexcept { return static_cast<bool>(m_event); }
    void Signal() noexcept { m_event->Get().Set(); }

private:
    Pinned<EventObject> m_event;
};

} // namespace vlt::posix
