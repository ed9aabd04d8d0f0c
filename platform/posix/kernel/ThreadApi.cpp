#include "platform/posix/core/HandleTable.h"
#include "platform/posix/kernel/ThreadRecord.h"
#include "platform/posix/kernel/ThreadSelf.h"

#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace vlt::posix;

namespace
{

// Windows' value; never in the handle table, whose values are multiples of 4.
const HANDLE CurrentThread = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-2));

class ThreadObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Thread;

    explicit ThreadObject(std::shared_ptr<ThreadRecord> record) noexcept : Object(kKind), m_record(std::move(record)) {}
    ThreadRecord& Record() noexcept { return *m_record; }
    Waitable* AsWaitable() noexcept override { return &m_record->Ended(); }

private:
    const std::shared_ptr<ThreadRecord> m_record;
};

template <typename Result, typename Operation>
Result WithThread(HANDLE handle, Result failure, Operation operation)
{
    if (handle == CurrentThread)
        return operation(*ThreadRecord::OfCaller());
    const auto thread = Pin<ThreadObject>(handle);
    return thread ? operation(thread->Record()) : failure;
}

} // namespace

std::uintptr_t _beginthreadex(void* security, unsigned stackSize, VltThreadProc proc, void* argument, unsigned flags,
                              unsigned* threadId)
{
    if (security || (flags & ~CREATE_SUSPENDED) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    if (!proc) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // The handle comes first: a thread that runs is never without one.
    const auto record = std::make_shared<ThreadRecord>(proc, argument, (flags & CREATE_SUSPENDED) != 0);
    const HANDLE handle = InsertHandle(std::make_unique<ThreadObject>(record));
    if (!handle)
        return 0;
    if (!ThreadRecord::Start(record, stackSize)) {
        CloseHandleOfKind(handle, MaskOf(ObjectKind::Thread));
        return 0;
    }
    if (threadId)
        *threadId = record->Id();
    return reinterpret_cast<std::uintptr_t>(handle);
}

void _endthreadex(unsigned exitCode)
{
    ThreadRecord::OfCaller()->Exit(exitCode);
}

DWORD ResumeThread(HANDLE thread)
{
    return WithThread(thread, DWORD{0xFFFFFFFF}, [](ThreadRecord& record) { return record.Resume(); });
}

BOOL SetThreadPriority(HANDLE thread, int priority)
{
    return WithThread(thread, FALSE, [&](ThreadRecord& record) -> BOOL { return record.SetPriority(priority); });
}

int GetThreadPriority(HANDLE thread)
{
    return WithThread(thread, THREAD_PRIORITY_ERROR_RETURN, [](ThreadRecord& record) { return record.Priority(); });
}

BOOL TerminateThread(HANDLE thread, DWORD exitCode)
{
    if (thread != CurrentThread) {
        const auto target = Pin<ThreadObject>(thread);
        if (!target)
            return FALSE;
        if (&target->Record() != t_self.record) {
            target->Record().Terminate(exitCode);
            return TRUE;
        }
    }
    ThreadRecord::OfCaller()->Exit(exitCode); // with no handle pinned: nothing would release it
}

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode)
{
    return WithThread(thread, FALSE, [&](ThreadRecord& record) -> BOOL {
        *exitCode = record.ExitCode();
        return TRUE;
    });
}

HANDLE GetCurrentThread()
{
    return CurrentThread;
}

DWORD GetCurrentThreadId()
{
    if (t_self.id == 0)
        t_self.id = static_cast<std::uint32_t>(syscall(SYS_gettid));
    return t_self.id;
}
