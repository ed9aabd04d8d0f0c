// The lock that the writers of a quarantine store share, in all processes.
#pragma once

#include "platform/Unique.h"

// The semaphore, for one write. A wait of kQuarantineLockWait that runs out counts as success: whoever
// holds it too long must not hold up a detection.
class CQuarantineLock
{
public:
    ~CQuarantineLock() { Unlock(); }
    CQuarantineLock() = default;
    CQuarantineLock(const CQuarantineLock&) = delete;
    CQuarantineLock& operator=(const CQuarantineLock&) = delete;

    // False when the semaphore cannot be made or opened.
    bool Lock();
    // Gives one count back, also after a wait that ran out.
    void Unlock();

private:
    vlt::KernelHandle m_semaphore;
};
