#include "platform/posix/core/HandleTable.h"
#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ThreadSelf.h"
#include "platform/posix/kernel/Waitable.h"
#include "platform/posix/win32/kernel.h"

#include <array>
#include <cerrno>
#include <sched.h>

using namespace vlt::posix;

namespace
{

constexpr KindMask WaitableKinds = MaskOf(ObjectKind::Event) | MaskOf(ObjectKind::Mutex) |
                                   MaskOf(ObjectKind::Semaphore) | MaskOf(ObjectKind::Timer) |
                                   MaskOf(ObjectKind::Thread) | MaskOf(ObjectKind::Process);

// Null with the last error set.
Waitable* WaitableOf(const Pinned<Object>& object) noexcept
{
    if (!object)
        return nullptr;
    Waitable* const waitable = object->AsWaitable();
    if (!waitable)
        SetLastError(ERROR_ACCESS_DENIED);
    return waitable;
}

// What a wait that could not sleep returns: time-out, or the kernel's refusal.
DWORD EndOfSleep() noexcept
{
    if (errno == ETIMEDOUT)
        return WAIT_TIMEOUT;
    SetLastError(errno == ENOSYS ? ERROR_NOT_SUPPORTED : ERROR_GEN_FAILURE);
    return WAIT_FAILED;
}

class SingleWait final : public Interruptible
{
public:
    explicit SingleWait(HANDLE handle) noexcept : m_object(handle, WaitableKinds), m_waitable(WaitableOf(m_object)) {}

    DWORD Run(DWORD milliseconds) noexcept
    {
        if (!m_waitable)
            return WAIT_FAILED;
        if (m_waitable->TryTake())
            return WAIT_OBJECT_0;
        if (milliseconds == 0)
            return WAIT_TIMEOUT;
        const Deadline deadline(milliseconds);
        const int descriptor = m_waitable->PollDescriptor();
        return descriptor >= 0 ? Poll(descriptor, deadline) : Sleep(deadline);
    }

    void Abandon() noexcept override
    {
        if (m_begun)
            m_waitable->AbandonWait();
        m_object.Reset();
    }

private:
    DWORD Sleep(const Deadline& deadline) noexcept
    {
        if (!m_waitable->PrepareWait())
            return WAIT_FAILED;
        if (m_waitable->BeginWait(m_ticket))
            return WAIT_OBJECT_0;
        m_begun = true;
        const FutexRef futex = m_waitable->Futex();
        std::uint32_t expected = m_ticket;
        while (true) {
            bool again = false;
            {
                const WaitScope scope(*this);
                again = FutexWait(futex.word, expected, futex.shared, deadline);
            }
            const DWORD end = again ? WAIT_OBJECT_0 : EndOfSleep();
            if (m_waitable->TryEndWait(m_ticket, expected))
                return WAIT_OBJECT_0;
            if (!again) {
                m_waitable->AbandonWait();
                return end;
            }
        }
    }

    DWORD Poll(int descriptor, const Deadline& deadline) noexcept
    {
        while (true) {
            bool again = false;
            {
                const WaitScope scope(*this);
                again = PollReadable(descriptor, deadline);
            }
            const DWORD end = again ? WAIT_OBJECT_0 : EndOfSleep();
            if (m_waitable->TryTake())
                return WAIT_OBJECT_0;
            if (!again)
                return end;
        }
    }

    Pinned<Object> m_object;
    Waitable* const m_waitable;
    std::uint32_t m_ticket = 0;
    bool m_begun = false;
};

class MultipleWait final : public Interruptible
{
public:
    // False with the last error set when one of the handles cannot be waited for.
    bool Pin(DWORD count, const HANDLE* handles) noexcept
    {
        for (; m_count < count; ++m_count) {
            Entry& entry = m_entries[m_count];
            entry.object = Pinned<Object>(handles[m_count], WaitableKinds);
            entry.waitable = WaitableOf(entry.object);
            if (!entry.waitable)
                return false;
        }
        return true;
    }

    DWORD Run(DWORD milliseconds) noexcept
    {
        for (DWORD i = 0; i < m_count; ++i) {
            if (m_entries[i].waitable->TryTake())
                return WAIT_OBJECT_0 + i;
        }
        return milliseconds == 0 ? WAIT_TIMEOUT : Sleep(Deadline(milliseconds));
    }

    void Abandon() noexcept override
    {
        AbandonAllBut(m_count);
        for (DWORD i = 0; i < m_count; ++i)
            m_entries[i].object.Reset();
    }

private:
    struct Entry {
        Pinned<Object> object;
        Waitable* waitable = nullptr;
        std::uint32_t ticket = 0;
    };

    DWORD Sleep(const Deadline& deadline) noexcept
    {
        for (m_begun = 0; m_begun < m_count; ++m_begun) {
            Entry& entry = m_entries[m_begun];
            if (!entry.waitable->PrepareWait()) {
                AbandonAllBut(m_count);
                return WAIT_FAILED;
            }
            if (entry.waitable->BeginWait(entry.ticket)) {
                const DWORD index = m_begun;
                AbandonAllBut(index);
                return WAIT_OBJECT_0 + index;
            }
            const FutexRef futex = entry.waitable->Futex();
            m_words[m_begun] = MakeFutexWaitV(futex.word, entry.ticket, futex.shared);
        }
        while (true) {
            bool again = false;
            {
                const WaitScope scope(*this);
                again = FutexWaitMany({m_words.data(), m_count}, deadline);
            }
            const DWORD end = again ? WAIT_OBJECT_0 : EndOfSleep();
            for (DWORD i = 0; i < m_count; ++i) {
                std::uint32_t expected = 0;
                if (m_entries[i].waitable->TryEndWait(m_entries[i].ticket, expected)) {
                    AbandonAllBut(i);
                    return WAIT_OBJECT_0 + i;
                }
                m_words[i].val = expected;
            }
            if (!again) {
                AbandonAllBut(m_count);
                return end;
            }
        }
    }

    void AbandonAllBut(DWORD index) noexcept
    {
        for (DWORD i = 0; i < m_begun; ++i) {
            if (i != index)
                m_entries[i].waitable->AbandonWait();
        }
        m_begun = 0;
    }

    std::array<Entry, MAXIMUM_WAIT_OBJECTS> m_entries;
    std::array<futex_waitv, MAXIMUM_WAIT_OBJECTS> m_words;
    DWORD m_count = 0;
    DWORD m_begun = 0; // waits counted
};

} // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    EndIfTerminated();
    return SingleWait(handle).Run(milliseconds);
}

// Nothing queues asynchronous calls in the subset, so an alertable wait is a plain one.
DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL alertable)
{
    static_cast<void>(alertable);
    return WaitForSingleObject(handle, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    EndIfTerminated();
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    if (waitAll) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return WAIT_FAILED;
    }
    MultipleWait wait;
    return wait.Pin(count, handles) ? wait.Run(milliseconds) : WAIT_FAILED;
}

DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds, BOOL alertable)
{
    static_cast<void>(alertable);
    return WaitForMultipleObjects(count, handles, waitAll, milliseconds);
}

void Sleep(DWORD milliseconds)
{
    EndIfTerminated();
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    const Deadline deadline(milliseconds);
    const std::uint32_t never = 0;
    PlainWait nothing;
    bool again = true;
    while (again) {
        const WaitScope scope(nothing);
        again = FutexWait(&never, 0, false, deadline);
    }
}
