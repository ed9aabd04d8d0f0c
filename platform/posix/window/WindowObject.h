// What a window handle stands for.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/window/MessageQueue.h"

#include <memory>

namespace vlt::posix
{

class WindowObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Window;

    WindowObject(WNDPROC procedure, std::shared_ptr<MessageQueue> queue) noexcept
        : Object(kKind), m_procedure(procedure), m_queue(std::move(queue))
    {
    }

    WNDPROC Procedure() const noexcept { return m_procedure; }
    const std::shared_ptr<MessageQueue>& Queue() const noexcept { return m_queue; }
    // False when the window is being destroyed already: its procedure may ask for it again.
    bool BeginDestroy() noexcept { return !m_destroying.exchange(true); }

private:
    const WNDPROC m_procedure;
    const std::shared_ptr<MessageQueue> m_queue;
    std::atomic<bool> m_destroying{false};
};

// A copy of what a call needs: no pin may be held while a procedure runs, since it can end its thread.
// A null procedure, with ERROR_INVALID_WINDOW_HANDLE, when there is no such window.
struct WindowCopy {
    explicit WindowCopy(HWND window)
    {
        if (const auto object = Pin<WindowObject>(reinterpret_cast<HANDLE>(window))) {
            procedure = object->Procedure();
            queue = object->Queue();
        } else {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        }
    }
    bool IsCallers() const { return queue == MessageQueue::OfCaller(); }

    WNDPROC procedure = nullptr;
    std::shared_ptr<MessageQueue> queue;
};

} // namespace vlt::posix
