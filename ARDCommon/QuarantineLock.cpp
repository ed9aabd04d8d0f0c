#include "ARDCommon/QuarantineLock.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/QuarantineFormat.h"

bool CQuarantineLock::Lock()
{
    // Open to every account: the store's other users may run as anyone.
    const DefSecAttr security;
    m_semaphore.Reset(CreateSemaphoreW(security.Get(), 1, 1, kQuarantineSemaphore));
    if (!m_semaphore)
        return false;
    WaitForSingleObject(m_semaphore.Get(), kQuarantineLockWait);
    return true;
}

void CQuarantineLock::Unlock()
{
    if (!m_semaphore)
        return;
    ReleaseSemaphore(m_semaphore.Get(), 1, nullptr);
    m_semaphore.Reset();
}
