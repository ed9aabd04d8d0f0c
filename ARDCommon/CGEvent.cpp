#include "ARDCommon/CGEvent.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"

CGEvent::~CGEvent()
{
    Close();
}

bool CGEvent::Create(LPCWSTR name)
{
    Close();
    if (!SetNames(name))
        return false;
    const DefSecAttr security;
    m_signal.Reset(CreateEventW(security.Get(), TRUE, FALSE, m_fullName));
    m_lastError = GetLastError(); // tells also whether the event was there
    if (!m_signal)
        return false;
    m_return.Reset(CreateEventW(security.Get(), TRUE, FALSE, m_returnName));
    m_lastError = GetLastError();
    if (!m_return)
        m_signal.Reset();
    return IsHeld();
}

bool CGEvent::Open(LPCWSTR name)
{
    Close();
    if (!SetNames(name))
        return false;
    m_signal.Reset(OpenEventW(EVENT_ALL_ACCESS, FALSE, m_fullName));
    if (!m_signal)
        return Fail();
    m_return.Reset(OpenEventW(EVENT_ALL_ACCESS, FALSE, m_returnName));
    if (!m_return) {
        Fail();
        m_signal.Reset();
    }
    return IsHeld();
}

bool CGEvent::Exists(LPCWSTR name)
{
    const vlt::KernelHandle event(OpenEventW(EVENT_ALL_ACCESS, FALSE, vlt::MakeGlobalName(name).c_str()));
    return static_cast<bool>(event);
}

bool CGEvent::Pulse()
{
    return PulseEvent(m_signal.Get()) || Fail();
}

bool CGEvent::Set()
{
    return SetEvent(m_signal.Get()) || Fail();
}

bool CGEvent::PulseAndWait(DWORD timeout)
{
    ResetEvent(m_return.Get());
    if (PulseEvent(m_signal.Get()) && WaitForSingleObject(m_return.Get(), timeout) == WAIT_OBJECT_0)
        return true;
    return Fail();
}

void CGEvent::SetTarget(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    m_hWnd = window;
    m_message = message;
    m_wParam = wParam;
    m_lParam = lParam;
}

void CGEvent::SetCallback(Callback callback, void* context, bool reply)
{
    m_callback = callback;
    m_context = context;
    m_reply = reply;
}

bool CGEvent::StartPostThread()
{
    if (!StartThread(PostThread))
        return false;
    SetThreadPriority(m_thread.Get(), THREAD_PRIORITY_IDLE);
    return true;
}

bool CGEvent::StartSendThread()
{
    return StartThread(SendThread);
}

bool CGEvent::StartCallbackThread()
{
    return StartThread(CallbackThread);
}

void CGEvent::Close()
{
    // A thread that cannot be told to stop is not waited for.
    if (m_thread && SetEvent(m_stop.Get()))
        WaitForSingleObject(m_thread.Get(), INFINITE);
    m_thread.Reset();
    m_stop.Reset();
    m_signal.Reset();
    if (m_return)
        SetEvent(m_return.Get()); // for a sender that still waits
    m_return.Reset();
    m_fullName[0] = 0;
    m_returnName[0] = 0;
    m_lastError = NO_ERROR;
    m_hWnd = nullptr;
}

bool CGEvent::SetNames(LPCWSTR name)
{
    const WString fullName = vlt::MakeGlobalName(name);
    const WString returnName = fullName + TEXT("RET");
    if (returnName.size() >= kNameSize) {
        // Cut to the fields, both names could be the same event.
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return Fail();
    }
    lstrcpynW(m_name, name ? name : TEXT(""), kNameSize);
    lstrcpynW(m_fullName, fullName.c_str(), kNameSize);
    lstrcpynW(m_returnName, returnName.c_str(), kNameSize);
    return true;
}

bool CGEvent::StartThread(ThreadProc proc)
{
    if (m_thread) {
        SetLastError(ERROR_BUSY);
        return Fail();
    }
    if (!m_stop) {
        m_stop.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        if (!m_stop)
            return Fail();
    }
    m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, proc, this, 0, nullptr)));
    m_lastError = GetLastError();
    return static_cast<bool>(m_thread);
}

// On the listening thread. False when the listener has to end.
bool CGEvent::AwaitSignal() const
{
    const HANDLE events[] = {m_stop.Get(), m_signal.Get()};
    return WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0 + 1;
}

bool CGEvent::Fail()
{
    m_lastError = GetLastError();
    return false;
}

unsigned __stdcall CGEvent::PostThread(void* event)
{
    const CGEvent& self = *static_cast<CGEvent*>(event);
    while (self.AwaitSignal()) {
        if (self.m_hWnd)
            PostMessageW(self.m_hWnd, self.m_message, self.m_wParam, self.m_lParam);
        ResetEvent(self.m_signal.Get());
    }
    return 0;
}

unsigned __stdcall CGEvent::SendThread(void* event)
{
    const CGEvent& self = *static_cast<CGEvent*>(event);
    while (self.AwaitSignal()) {
        SendMessageW(self.m_hWnd, self.m_message, self.m_wParam, self.m_lParam);
        PulseEvent(self.m_return.Get());
    }
    return 0;
}

unsigned __stdcall CGEvent::CallbackThread(void* event)
{
    const CGEvent& self = *static_cast<CGEvent*>(event);
    while (self.AwaitSignal()) {
        self.m_callback(self.m_name, self.m_context);
        if (self.m_reply)
            SetEvent(self.m_return.Get());
        ResetEvent(self.m_signal.Get());
    }
    return 0;
}
