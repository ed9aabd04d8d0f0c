#include "platform/posix/kernel/ThreadRecord.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ThreadSelf.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#define VLT_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VLT_THREAD_SANITIZER
#endif
#endif

namespace vlt::posix
{

thread_local constinit ThreadSelf t_self __attribute__((tls_model("initial-exec"), visibility("hidden")));

namespace
{

// Runs the request of TerminateThread; any value that nothing else in the process uses.
int TerminateSignal() noexcept
{
    return SIGRTMIN + 4;
}

void OnTerminateSignal(int) noexcept
{
    Interruptible* const wait = t_self.wait;
    if (!wait || !t_self.record || !t_self.record->IsTerminated())
        return;
    // Between two system calls of this layer: the interrupted code holds no lock, so anything may
    // be called.
    t_self.wait = nullptr;
    wait->Abandon();
    EndTerminatedThread();
}

#ifdef VLT_THREAD_SANITIZER
// The sanitizer puts a signal off until the thread calls into it, which a thread asleep in a raw
// system call never does. So the handler is installed behind its back.
extern "C" __attribute__((visibility("hidden"))) void VltSignalRestorer();
asm(".text\n.type VltSignalRestorer,@function\nVltSignalRestorer:\n mov $15, %eax\n syscall\n");

bool InstallHandler() noexcept
{
    struct KernelAction {
        void (*handler)(int);
        unsigned long flags;
        void (*restorer)();
        unsigned long mask;
    };
    constexpr unsigned long hasRestorer = 0x04000000;
    const KernelAction action{OnTerminateSignal, SA_RESTART | hasRestorer, VltSignalRestorer, 0};
    return syscall(SYS_rt_sigaction, TerminateSignal(), &action, nullptr, 8) == 0;
}
#else
bool InstallHandler() noexcept
{
    struct sigaction action {
    };
    action.sa_handler = OnTerminateSignal;
    action.sa_flags = SA_RESTART;
    return sigaction(TerminateSignal(), &action, nullptr) == 0;
}
#endif

// The thread's end is told by a key's destructor, which runs after those of thread-local objects.
pthread_key_t EndKey(void (*destructor)(void*)) noexcept
{
    static const pthread_key_t key = [&] {
        pthread_key_t made = 0;
        pthread_key_create(&made, destructor);
        InstallHandler();
        return made;
    }();
    return key;
}

int NiceOf(int priority) noexcept
{
    if (priority <= THREAD_PRIORITY_LOWEST)
        return 10;
    return priority < THREAD_PRIORITY_NORMAL ? 5 : 0;
}

} // namespace

struct ThreadStart {
    std::shared_ptr<ThreadRecord> record;
};

ThreadRecord::ThreadRecord(VltThreadProc proc, void* argument, bool suspended) noexcept
    : m_ended(m_endedState, true, false), m_proc(proc), m_argument(argument), m_suspendCount(suspended ? 1 : 0)
{
}

bool ThreadRecord::Start(const std::shared_ptr<ThreadRecord>& record, unsigned stackSize)
{
    EndKey(AtThreadEnd);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    // A size given is what Windows commits; a thread never gets less than the default.
    std::size_t defaultSize = 0;
    pthread_attr_getstacksize(&attributes, &defaultSize);
    constexpr std::size_t page = 4096;
    pthread_attr_setstacksize(&attributes, std::max(defaultSize, (stackSize + page - 1) / page * page));
    auto start = std::make_unique<ThreadStart>(ThreadStart{record});
    pthread_t thread{};
    const int failure = pthread_create(&thread, &attributes, Main, start.get());
    pthread_attr_destroy(&attributes);
    if (failure != 0) {
        SetLastError(failure == EAGAIN ? ERROR_NOT_ENOUGH_MEMORY : ErrorFromErrno(failure));
        return false;
    }
    static_cast<void>(start.release()); // the thread's
    return true;
}

// Only the thread itself can find it out. Its maker does not wait for that unless it asks.
DWORD ThreadRecord::Id() const noexcept
{
    const auto* const word = reinterpret_cast<const std::uint32_t*>(&m_id);
    for (;;) {
        if (const DWORD id = m_id.load(std::memory_order_acquire))
            return id;
        FutexWait(word, 0, false, Deadline(INFINITE));
    }
}

ThreadRecord* ThreadRecord::OfCaller()
{
    if (!t_self.record) {
        auto start =
            std::make_unique<ThreadStart>(ThreadStart{std::make_shared<ThreadRecord>(nullptr, nullptr, false)});
        start->record->m_id = GetCurrentThreadId();
        t_self.record = start->record.get();
        pthread_setspecific(EndKey(AtThreadEnd), start.release());
    }
    return t_self.record;
}

void* ThreadRecord::Main(void* start) noexcept
{
    ThreadRecord& record = *static_cast<ThreadStart*>(start)->record;
    pthread_setspecific(EndKey(AtThreadEnd), start);
    t_self.record = &record;
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, TerminateSignal());
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    // A new thread is of normal priority, whatever its maker's is. Without the right to raise it,
    // it keeps its maker's.
    if (sched_getscheduler(0) == SCHED_IDLE) {
        const sched_param none{};
        sched_setscheduler(0, SCHED_OTHER, &none);
    }
    const DWORD id = GetCurrentThreadId();
    record.m_id.store(id, std::memory_order_release);
    FutexWake(reinterpret_cast<const std::uint32_t*>(&record.m_id), 1, false);
    record.RunProc();
    return nullptr;
}

void ThreadRecord::RunProc() noexcept
{
    if (sigsetjmp(m_base, 0) == 0) {
        m_canLeave = true;
        AwaitResume();
        m_exitCode.store(m_proc(m_argument), std::memory_order_release);
    }
    m_canLeave = false;
    Retire();
}

// From here on the thread only runs the destructors of its thread-local objects: nothing ends it in
// them, and its id is not used any more.
void ThreadRecord::Retire() noexcept
{
    const std::lock_guard guard(m_alive);
    m_retired = true;
    m_terminated.store(false, std::memory_order_release);
}

void ThreadRecord::AwaitResume() noexcept
{
    PlainWait nothing;
    const auto* const word = reinterpret_cast<const std::uint32_t*>(&m_suspendCount);
    EndIfTerminated();
    while (const std::uint32_t count = m_suspendCount.load(std::memory_order_acquire)) {
        const WaitScope scope(nothing);
        FutexWait(word, count, false, Deadline(INFINITE));
    }
}

void ThreadRecord::AtThreadEnd(void* holder) noexcept
{
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(holder));
    start->record->Retire();
    start->record->m_mutexes.AbandonAll();
    t_self.record = nullptr;
    start->record->m_ended.Set();
}

DWORD ThreadRecord::Resume() noexcept
{
    std::uint32_t count = m_suspendCount.load(std::memory_order_acquire);
    while (count != 0 && !m_suspendCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) {
    }
    if (count == 1)
        FutexWake(reinterpret_cast<const std::uint32_t*>(&m_suspendCount), 1, false);
    return count;
}

bool ThreadRecord::SetPriority(int priority) noexcept
{
    if (priority != THREAD_PRIORITY_IDLE && (priority < THREAD_PRIORITY_LOWEST || priority > THREAD_PRIORITY_NORMAL)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return false;
    }
    const std::lock_guard guard(m_alive);
    if (m_retired) {
        SetLastError(ERROR_ACCESS_DENIED); // as for any thread that is going away
        return false;
    }
    const auto id = static_cast<pid_t>(Id());
    const sched_param none{};
    if (sched_setscheduler(id, priority == THREAD_PRIORITY_IDLE ? SCHED_IDLE : SCHED_OTHER, &none) != 0 ||
        (priority != THREAD_PRIORITY_IDLE && setpriority(PRIO_PROCESS, static_cast<id_t>(id), NiceOf(priority)) != 0)) {
        SetLastErrorFromErrno();
        return false;
    }
    m_priority.store(priority, std::memory_order_relaxed);
    return true;
}

void ThreadRecord::Terminate(DWORD exitCode) noexcept
{
    const std::lock_guard guard(m_alive);
    if (m_retired || IsTerminated())
        return;
    m_exitCode.store(exitCode, std::memory_order_relaxed);
    m_terminated.store(true, std::memory_order_seq_cst);
    syscall(SYS_tgkill, getpid(), static_cast<pid_t>(Id()), TerminateSignal());
}

void ThreadRecord::Leave() noexcept
{
    if (!m_canLeave)
        pthread_exit(nullptr);
    siglongjmp(m_base, 1);
}

void ThreadRecord::Exit(DWORD exitCode) noexcept
{
    m_exitCode.store(exitCode, std::memory_order_release);
    Leave();
}

void EndTerminatedThread() noexcept
{
    t_self.record->Leave();
}

} // namespace vlt::posix
