// A pair of named events, through which one process tells another that something has changed, and
// optionally a thread that listens.
//
// For the name N the pair is, after the rule of GlobalName.h:
//
//   N      the signal: manual-reset, mostly pulsed
//   N+RET  the return: manual-reset; the listener acknowledges through it
//
// A pulse reaches only a listener that waits: one that is busy in its handler misses it. So a signal
// carries nothing and is never counted; it asks the listener to look again.
//
// One thread owns a CGEvent. The functions return whether they succeeded; after one that did not,
// LastError() is the system's code. A name whose events' names exceed 259 characters is refused with
// ERROR_FILENAME_EXCED_RANGE.
#pragma once

#include "platform/Unique.h"
#include "platform/win32.h"

class CGEvent
{
public:
    // On the listening thread, with the name that was given to Create. It must not close its own event.
    using Callback = void (*)(LPCWSTR name, void* context);

    CGEvent() = default;
    virtual ~CGEvent();
    CGEvent(const CGEvent&) = delete;
    CGEvent& operator=(const CGEvent&) = delete;

    // Makes both events, open to every account, or opens those that are there. Closes what was held.
    bool Create(LPCWSTR name);
    // Opens both; there must be a process that made them.
    bool Open(LPCWSTR name);
    // Whether somebody holds the signal event of that name: is there a listener?
    static bool Exists(LPCWSTR name);
    bool IsHeld() const { return static_cast<bool>(m_signal); }

    bool Pulse();
    bool Set();
    // Pulses and waits for the acknowledgement. False after `timeout` milliseconds. With INFINITE, a
    // listener that never answers releases the caller by closing.
    bool PulseAndWait(DWORD timeout);

    // What a listener works with, to be set before it starts and left alone while it runs.
    void SetTarget(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void SetCallback(Callback callback, void* context, bool reply);

    // Start the listening thread on the created pair; one at a time (ERROR_BUSY). On each signal it
    // - posts the message, at idle priority. A signal that was set is reset;
    // - sends the message and pulses the return event. It does not reset the signal: only pulse it;
    // - calls back, then sets the return event when `reply` was asked for, then resets the signal.
    bool StartPostThread();
    bool StartSendThread();
    bool StartCallbackThread();

    // Ends the listening thread and waits, without limit, for it: not to be called in its callback, nor,
    // while it sends, by the thread that owns the target window. Releases a sender in PulseAndWait.
    void Close();

    DWORD LastError() const { return m_lastError; }

private:
    static constexpr int kNameSize = MAX_PATH; // with the terminator
    using ThreadProc = unsigned(__stdcall*)(void* event);

    bool SetNames(LPCWSTR name);
    bool StartThread(ThreadProc proc);
    bool AwaitSignal() const;
    bool Fail();

    static unsigned __stdcall PostThread(void* event);
    static unsigned __stdcall SendThread(void* event);
    static unsigned __stdcall CallbackThread(void* event);

    HWND m_hWnd = nullptr;
    UINT m_message = 0;
    WPARAM m_wParam = 0;
    LPARAM m_lParam = 0;
    vlt::KernelHandle m_thread;
    vlt::KernelHandle m_stop; // auto-reset; from the first start of a listener to Close
    vlt::KernelHandle m_signal;
    vlt::KernelHandle m_return;
    BOOL m_reply = FALSE;
    void* m_context = nullptr;
    Callback m_callback = nullptr;
    WCHAR m_name[kNameSize] = {};
    WCHAR m_fullName[kNameSize] = {};
    WCHAR m_returnName[kNameSize] = {};
    DWORD m_lastError = 0;
};
