#include "platform/posix/kernel/ThreadSelf.h"
#include "platform/posix/win32/system.h"
#include "platform/posix/window/WindowObject.h"

using namespace vlt::posix;

namespace
{

MSG MakeMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return {window, message, wParam, lParam, static_cast<DWORD>(GetTickCount64()), {}};
}

// Only a window that is the calling thread's. Null with the last error set.
WNDPROC OwnProcedure(HWND window)
{
    const WindowCopy copy(window);
    if (copy.procedure && !copy.IsCallers()) {
        SetLastError(ERROR_WINDOW_OF_OTHER_THREAD);
        return nullptr;
    }
    return copy.procedure;
}

} // namespace

BOOL GetMessageW(LPMSG message, HWND window, UINT first, UINT last)
{
    EndIfTerminated();
    if (window || first != 0 || last != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return -1;
    }
    MessageQueue::OfCaller()->Get(*message);
    return message->message != WM_QUIT;
}

LRESULT DispatchMessageW(const MSG* message)
{
    if (!message->hwnd)
        return 0;
    const WNDPROC procedure = OwnProcedure(message->hwnd);
    return procedure ? procedure(message->hwnd, message->message, message->wParam, message->lParam) : 0;
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (window == HWND_BROADCAST) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    const MSG posted = MakeMessage(window, message, wParam, lParam);
    if (!window)
        return MessageQueue::OfCaller()->Post(posted);
    const WindowCopy copy(window);
    return copy.procedure && copy.queue->Post(posted);
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    EndIfTerminated();
    if (window == HWND_BROADCAST) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    WNDPROC procedure = nullptr;
    {
        WindowCopy copy(window);
        if (!copy.procedure)
            return 0;
        if (!copy.IsCallers())
            return MessageQueue::OfCaller()->Send(std::move(copy.queue), copy.procedure,
                                                  MakeMessage(window, message, wParam, lParam));
        procedure = copy.procedure;
    }
    return procedure(window, message, wParam, lParam);
}

void PostQuitMessage(int exitCode)
{
    MessageQueue::OfCaller()->Quit(exitCode);
}
