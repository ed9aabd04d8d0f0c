#include "platform/posix/core/Utf.h"
#include "platform/posix/window/WindowObject.h"

#include <map>
#include <new>
#include <string>

using namespace vlt::posix;

namespace
{

std::u16string Folded(LPCWSTR name)
{
    std::u16string folded = name;
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char16_t unit) { return FoldCase(unit); });
    return folded;
}

class WindowClasses
{
public:
    // Never destroyed: threads may make windows while the process exits.
    static WindowClasses& Instance()
    {
        static WindowClasses& classes = *new WindowClasses;
        return classes;
    }

    // 0 when the name is taken.
    ATOM Register(LPCWSTR name, WNDPROC procedure)
    {
        constexpr unsigned firstAtom = 0xC000;
        const std::lock_guard guard(m_lock);
        if (!m_procedures.emplace(Folded(name), procedure).second)
            return 0;
        return static_cast<ATOM>(firstAtom + m_procedures.size());
    }

    // Null when there is none.
    WNDPROC Find(LPCWSTR name)
    {
        const std::lock_guard guard(m_lock);
        const auto found = m_procedures.find(Folded(name));
        return found == m_procedures.end() ? nullptr : found->second;
    }

private:
    std::mutex m_lock;
    std::map<std::u16string, WNDPROC> m_procedures;
};

// A class may also be given by its atom; here by its name alone.
bool IsAtom(LPCWSTR name)
{
    return reinterpret_cast<ULONG_PTR>(name) <= 0xFFFF;
}

void Remove(HWND window)
{
    if (MessageQueue::OfCaller()->RemoveWindow(window))
        CloseHandleOfKind(reinterpret_cast<HANDLE>(window), MaskOf(ObjectKind::Window));
}

} // namespace

ATOM RegisterClassExW(const WNDCLASSEXW* windowClass)
{
    const WNDCLASSEXW& given = *windowClass;
    if (given.cbSize != sizeof given || !given.lpfnWndProc || !given.lpszClassName) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (IsAtom(given.lpszClassName) || given.style != 0 || given.cbClsExtra != 0 || given.cbWndExtra != 0 ||
        given.hIcon || given.hCursor || given.hbrBackground || given.lpszMenuName || given.hIconSm) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    const ATOM atom = WindowClasses::Instance().Register(given.lpszClassName, given.lpfnWndProc);
    if (atom == 0)
        SetLastError(ERROR_CLASS_ALREADY_EXISTS);
    return atom;
}

HWND CreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y, int width,
                     int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter)
{
    if (parent != HWND_MESSAGE || extendedStyle != 0 || style != 0 || menu || IsAtom(className)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    const WNDPROC procedure = WindowClasses::Instance().Find(className);
    if (!procedure) {
        SetLastError(ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    const std::shared_ptr<MessageQueue>& queue = MessageQueue::OfCaller();
    const auto window = reinterpret_cast<HWND>(InsertHandle(std::make_unique<WindowObject>(procedure, queue)));
    if (!window)
        return nullptr;
    queue->AddWindow(window);
    CREATESTRUCTW creation{parameter, instance, menu, parent, height, width, y, x, 0, windowName, className, 0};
    const auto given = reinterpret_cast<LPARAM>(&creation);
    if (!procedure(window, WM_NCCREATE, 0, given)) {
        Remove(window);
        return nullptr;
    }
    if (procedure(window, WM_CREATE, 0, given) == -1) {
        DestroyWindow(window);
        return nullptr;
    }
    return IsWindow(window) ? window : nullptr;
}

BOOL DestroyWindow(HWND window)
{
    WNDPROC procedure = nullptr;
    if (const auto object = Pin<WindowObject>(reinterpret_cast<HANDLE>(window))) {
        if (object->Queue() != MessageQueue::OfCaller())
            SetLastError(ERROR_ACCESS_DENIED);
        else if (object->BeginDestroy())
            procedure = object->Procedure();
    } else {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    }
    if (!procedure)
        return FALSE;
    procedure(window, WM_DESTROY, 0, 0);
    procedure(window, WM_NCDESTROY, 0, 0);
    Remove(window);
    return TRUE;
}

BOOL IsWindow(HWND window)
{
    return WindowCopy(window).procedure != nullptr;
}

LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    static_cast<void>(wParam);
    static_cast<void>(lParam);
    if (message == WM_NCCREATE)
        return TRUE;
    if (message == WM_CLOSE)
        DestroyWindow(window);
    return 0;
}
