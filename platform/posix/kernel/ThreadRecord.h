// A thread as its handles see it. Shared by the handles and the thread itself.
#pragma once

#include "platform/posix/kernel/EventWaitable.h"
#include "platform/posix/kernel/OwnedMutexes.h"
#include "platform/posix/win32/kernel.h"

#include <atomic>
#include <csetjmp>
#include <memory>
#include <mutex>

namespace vlt::posix
{

class ThreadRecord
{
public:
    ThreadRecord(VltThreadProc proc, void* argument, bool suspended) noexcept;

    // Starts the thread, once. False with the last error set.
    static bool Start(const std::shared_ptr<ThreadRecord>& record, unsigned stackSize);
    // The calling thread's; made at the first call in a thread that the layer did not start.
    static ThreadRecord* OfCaller();

    OwnedMutexes& Mutexes() noexcept { return m_mutexes; } // the thread's own use only
    EventWaitable& Ended() noexcept { return m_ended; }
    bool HasEnded() const noexcept { return m_endedState.IsSignaled(); }
    DWORD Id() const noexcept; // waits until the thread has begun
    DWORD ExitCode() const noexcept { return HasEnded() ? m_exitCode.load(std::memory_order_acquire) : STILL_ACTIVE; }

    // The suspend count before.
    DWORD Resume() noexcept;
    bool SetPriority(int priority) noexcept; // false with the last error set
    int Priority() const noexcept { return m_priority.load(std::memory_order_relaxed); }

    // Asks another thread to end with the code; nothing when it is ending already.
    void Terminate(DWORD exitCode) noexcept;
    bool IsTerminated() const noexcept { return m_terminated.load(std::memory_order_acquire); }

    // On the thread itself: leaves its function at once, without running destructors.
    [[noreturn]] void Leave() noexcept;
    [[noreturn]] void Exit(DWORD exitCode) noexcept;

private:
    static void* Main(void* start) noexcept;
    static void AtThreadEnd(void* holder) noexcept;
    void RunProc() noexcept;
    void AwaitResume() noexcept;
    void Retire() noexcept;

    OwnedMutexes m_mutexes;
    EventState m_endedState;
    EventWaitable m_ended;
    const VltThreadProc m_proc;
    void* const m_argument;
    std::atomic<std::uint32_t> m_id{0}; // 0 until it runs
    std::atomic<std::uint32_t> m_suspendCount;
    std::atomic<int> m_priority{THREAD_PRIORITY_NORMAL};
    std::atomic<bool> m_terminated{false};
    std::atomic<DWORD> m_exitCode{0};
    bool m_canLeave = false; // m_base is set
    std::mutex m_alive;      // held while the id is used, so that the kernel still knows it as this thread's
    bool m_retired = false;  // guarded by m_alive
    sigjmp_buf m_base;
};

} // namespace vlt::posix
