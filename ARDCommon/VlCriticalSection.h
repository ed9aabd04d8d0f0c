// A recursive lock with an address that the trace can show, and its guard.
#pragma once

#include "platform/win32.h"

class VlCriticalSection
{
public:
    VlCriticalSection() { InitializeCriticalSection(&m_section); }
    ~VlCriticalSection() { DeleteCriticalSection(&m_section); }
    VlCriticalSection(const VlCriticalSection&) = delete;
    VlCriticalSection& operator=(const VlCriticalSection&) = delete;

    void Enter() { EnterCriticalSection(&m_section); }
    void Leave() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

// Not to be held across a call that can raise a structured exception: on Windows it would stay locked.
class VlLock
{
public:
    explicit VlLock(VlCriticalSection& section) : m_section(section) { m_section.Enter(); }
    ~VlLock() { m_section.Leave(); }
    VlLock(const VlLock&) = delete;
    VlLock& operator=(const VlLock&) = delete;

private:
    VlCriticalSection& m_section;
};
