#include "ARDCommon/CGEReceiver.h"

CGEReceiver::~CGEReceiver() = default;

bool CGEReceiver::StartPost(LPCWSTR name, HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (!Create(name))
        return false;
    m_event.SetTarget(window, message, wParam, lParam);
    return m_event.StartPostThread();
}

bool CGEReceiver::StartSend(LPCWSTR name, HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (!Create(name))
        return false;
    m_event.SetTarget(window, message, wParam, lParam);
    return m_event.StartSendThread();
}

bool CGEReceiver::StartCallback(LPCWSTR name, CGEvent::Callback callback, void* context, bool reply)
{
    if (!Create(name))
        return false;
    m_event.SetCallback(callback, context, reply);
    return m_event.StartCallbackThread();
}

bool CGEReceiver::Create(LPCWSTR name)
{
    if (m_event.IsHeld())
        m_event.Close();
    return m_event.Create(name);
}
