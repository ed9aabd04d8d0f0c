// The lock within one process: recursive for the thread that holds it.
#pragma once

#include "ARDCommon/VlSyncObject.h"
#include "platform/win32.h"

class VlCriticalSection final : public VlSyncObject
{
public:
    VlCriticalSection() { InitializeCriticalSection(&m_section); }
    ~VlCriticalSection() override { DeleteCriticalSection(&m_section); }
    VlCriticalSection(const VlCriticalSection&) = delete;
    VlCriticalSection& operator=(const VlCriticalSection&) = delete;

    void Lock() override { EnterCriticalSection(&m_section); }
    bool TryLock() { return TryEnterCriticalSection(&m_section) != FALSE; }
    void Unlock() override { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};
