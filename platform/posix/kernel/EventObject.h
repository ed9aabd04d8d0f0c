// An event behind a handle.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/core/Object.h"
#include "platform/posix/kernel/EventWaitable.h"
#include "platform/posix/kernel/NamedBlock.h"
#include "platform/posix/win32/kernel.h"

#include <memory>

namespace vlt::posix
{

class EventObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Event;

    EventObject(bool manualReset, bool initialState) noexcept
        : Object(kKind), m_access(EVENT_ALL_ACCESS), m_own(initialState), m_waitable(m_own, manualReset, false)
    {
    }
    // The block's parameter says whether the event is a manual-reset one.
    EventObject(std::unique_ptr<NamedBlock> block, DWORD access) noexcept
        : Object(kKind), m_access(access), m_block(std::move(block)),
          m_waitable(*static_cast<EventState*>(m_block->State()), m_block->Parameter() != 0, true)
    {
    }

    // May the handle set, reset and pulse?
    bool MayModify() const noexcept { return (m_access & EVENT_MODIFY_STATE) != 0; }
    EventWaitable& Event() noexcept { return m_waitable; }

    Waitable* AsWaitable() noexcept override { return (m_access & SYNCHRONIZE) != 0 ? &m_waitable : nullptr; }
    void OnHandleClosed() noexcept override
    {
        if (m_block)
            m_block->ReleaseName();
    }

private:
    const DWORD m_access;
    std::unique_ptr<NamedBlock> m_block;
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
