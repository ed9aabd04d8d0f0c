#include "platform/posix/core/HandleTable.h"
#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ThreadSelf.h"
#include "platform/posix/kernel/Waitable.h"
#include "platform/posix/win32/kernel.h"

#include <cerrno>
#include <new>
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

// A wait's result for the object of that index.
DWORD ResultOf(Taken taken, DWORD index = 0) noexcept
{
    return (taken == Taken::Abandoned ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + index;
}

// What a wait that could not sleep returns: time-out, or the kernel's refusal.
DWORD EndOfSleep() noexcept
{
    if (errno == ETIMEDOUT)
        return WAIT_TIMEOUT;
    SetLastError(errno == ENOSYS ? ERROR_NOT_SUPPORTED : ERROR_GEN_FAILURE);
    return WAIT_FAILED;
}

constexpr DWORD LookAgain = WAIT_IO_COMPLETION; // which no wait returns

// After a sleep: LookAgain, or what the wait returns if there is nothing to take. `limited`: an object
// and not the caller set the end of the sleep.
DWORD AfterSleep(bool again, bool limited) noexcept
{
    return again || (limited && errno == ETIMEDOUT) ? LookAgain : EndOfSleep();
}

class SingleWait final : public Interruptible
{
public:
    explicit SingleWait(HANDLE handle) noexcept : m_object(handle, WaitableKinds), m_waitable(WaitableOf(m_object)) {}

    DWORD Run(DWORD milliseconds) noexcept
    {
        if (!m_waitable)
            return WAIT_FAILED;
        Taken taken = m_waitable->TryTake();
        if (taken == Taken::No && milliseconds != 0) {
            const Deadline deadline(milliseconds);
            const int descriptor = m_waitable->PollDescriptor();
            return descriptor >= 0 ? Poll(descriptor, deadline) : Sleep(deadline);
        }
        if (taken == Taken::No && m_waitable->Refresh())
            taken = m_waitable->TryTake();
        return taken == Taken::No ? WAIT_TIMEOUT : ResultOf(taken);
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
        Taken taken = m_waitable->BeginWait(m_ticket);
        if (taken != Taken::No)
            return ResultOf(taken);
        m_begun = true;
        const FutexRef futex = m_waitable->Futex();
        std::uint32_t expected = m_ticket;
        while (true) {
            Deadline end = deadline;
            const bool limited = m_waitable->LimitSleep(end);
            bool again = false;
            {
                const WaitScope scope(*this);
                again = FutexWait(futex.word, expected, futex.shared, end);
            }
            const DWORD result = AfterSleep(again, limited);
            taken = m_waitable->TryEndWait(m_ticket, expected);
            if (taken == Taken::No && result != LookAgain && m_waitable->Refresh())
                taken = m_waitable->TryEndWait(m_ticket, expected);
            if (taken != Taken::No)
                return ResultOf(taken);
            if (result != LookAgain) {
                m_waitable->AbandonWait();
                return result;
            }
        }
    }

    // A process: it is never abandoned, and its end needs nobody's look.
    DWORD Poll(int descriptor, const Deadline& deadline) noexcept
    {
        while (true) {
            bool again = false;
            {
                const WaitScope scope(*this);
                again = PollReadable(descriptor, deadline);
            }
            const DWORD result = AfterSleep(again, false);
            if (m_waitable->TryTake() != Taken::No)
                return WAIT_OBJECT_0;
            if (result != LookAgain)
                return result;
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
    MultipleWait() noexcept = default;
    MultipleWait(const MultipleWait&) = delete;
    MultipleWait& operator=(const MultipleWait&) = delete;
    ~MultipleWait()
    {
        for (DWORD i = 0; i < m_count; ++i)
            At(i).~Entry();
    }

    // False with the last error set when one of the handles cannot be waited for.
    bool Pin(DWORD count, const HANDLE* handles) noexcept
    {
        while (m_count < count) {
            const HANDLE handle = handles[m_count];
            const Entry& entry = *new (&m_entries[m_count]) Entry(handle);
            ++m_count;
            if (!entry.waitable)
                return false;
        }
        return true;
    }

    DWORD Run(DWORD milliseconds) noexcept
    {
        for (DWORD i = 0; i < m_count; ++i) {
            if (const Taken taken = At(i).waitable->TryTake(); taken != Taken::No)
                return ResultOf(taken, i);
        }
        if (milliseconds != 0)
            return Sleep(Deadline(milliseconds));
        for (DWORD i = 0; i < m_count; ++i) {
            if (!At(i).waitable->Refresh())
                continue;
            if (const Taken taken = At(i).waitable->TryTake(); taken != Taken::No)
                return ResultOf(taken, i);
        }
        return WAIT_TIMEOUT;
    }

    void Abandon() noexcept override
    {
        AbandonAllBut(m_count);
        for (DWORD i = 0; i < m_count; ++i)
            At(i).object.Reset();
    }

private:
    struct Entry {
        explicit Entry(HANDLE handle) noexcept : object(handle, WaitableKinds), waitable(WaitableOf(object)) {}

        Pinned<Object> object;
        Waitable* const waitable;
        std::uint32_t ticket = 0;
    };
    // Memory for the most, of which a wait touches only what it needs.
    struct alignas(Entry) EntryMemory {
        unsigned char bytes[sizeof(Entry)];
    };

    Entry& At(DWORD index) noexcept { return *std::launder(reinterpret_cast<Entry*>(&m_entries[index])); }

    DWORD Sleep(const Deadline& deadline) noexcept
    {
        for (m_begun = 0; m_begun < m_count; ++m_begun) {
            Entry& entry = At(m_begun);
            if (!entry.waitable->PrepareWait()) {
                AbandonAllBut(m_count);
                return WAIT_FAILED;
            }
            if (const Taken taken = entry.waitable->BeginWait(entry.ticket); taken != Taken::No)
                return EndWith(taken, m_begun);
            const FutexRef futex = entry.waitable->Futex();
            m_words[m_begun] = MakeFutexWaitV(futex.word, entry.ticket, futex.shared);
        }
        while (true) {
            Deadline end = deadline;
            bool limited = false;
            for (DWORD i = 0; i < m_count; ++i)
                limited |= At(i).waitable->LimitSleep(end);
            bool again = false;
            {
                const WaitScope scope(*this);
                again = FutexWaitMany({m_words, m_count}, end);
            }
            const DWORD result = AfterSleep(again, limited);
            for (DWORD i = 0; i < m_count; ++i) {
                if (const Taken taken = TryEnd(i, result != LookAgain); taken != Taken::No)
                    return EndWith(taken, i);
            }
            if (result != LookAgain) {
                AbandonAllBut(m_count);
                return result;
            }
        }
    }

    Taken TryEnd(DWORD index, bool last) noexcept
    {
        Entry& entry = At(index);
        std::uint32_t expected = 0;
        Taken taken = entry.waitable->TryEndWait(entry.ticket, expected);
        if (taken == Taken::No && last && entry.waitable->Refresh())
            taken = entry.waitable->TryEndWait(entry.ticket, expected);
        m_words[index].val = expected;
        return taken;
    }

    DWORD EndWith(Taken taken, DWORD index) noexcept
    {
        AbandonAllBut(index);
        return ResultOf(taken, index);
    }

    void AbandonAllBut(DWORD index) noexcept
    {
        for (DWORD i = 0; i < m_begun; ++i) {
            if (i != index)
                At(i).waitable->AbandonWait();
        }
        m_begun = 0;
    }

    DWORD m_count = 0; // entries made
    DWORD m_begun = 0; // waits counted
    EntryMemory m_entries[MAXIMUM_WAIT_OBJECTS];
    futex_waitv m_words[MAXIMUM_WAIT_OBJECTS];
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
