// Owns a pair of named events and listens; destruction ends it. A new start replaces the one before.
// Each start returns whether the listening thread runs; LastError() says why not.
#pragma once

#include "ARDCommon/CGEvent.h"

class CGEReceiver
{
public:
    CGEReceiver() = default;
    virtual ~CGEReceiver();

    bool StartPost(LPCWSTR name, HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    bool StartSend(LPCWSTR name, HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    bool StartCallback(LPCWSTR name, CGEvent::Callback callback, void* context, bool reply);

    DWORD LastError() const { return m_event.LastError(); }

private:
    bool Create(LPCWSTR name);

    CGEvent m_event;
};
