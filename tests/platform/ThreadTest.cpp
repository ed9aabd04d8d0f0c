#include "tests/platform/Waiter.h"

#ifndef _WIN32
#include <sched.h>
#endif

using namespace vlt::test;
using vlt::KernelHandle;

TEST(Thread, RunsEndsAndTellsItsCode)
{
    const KernelHandle go = MakeEvent(true);
    DWORD id = 0;
    TestThread thread([&]() -> unsigned {
        id = GetCurrentThreadId();
        WaitForSingleObject(go.Get(), kSoon);
        _endthreadex(42); // in the middle of its function
        id = 0;
        return 7;
    });
    EXPECT_FALSE(thread.HasEnded(0));
    EXPECT_EQ(thread.ExitCode(), STILL_ACTIVE);
    SetEvent(go.Get());
    EXPECT_TRUE(thread.HasEnded());
    EXPECT_EQ(thread.ExitCode(), 42u);
    EXPECT_EQ(thread.Id(), id);
}

TEST(Thread, StartsSuspendedAndRunsOnlyWhenResumed)
{
    std::atomic<int> ran{0};
    const auto run = [&] {
        ++ran;
        return 0u;
    };
    TestThread thread(run, CREATE_SUSPENDED);
    TestThread never(run, CREATE_SUSPENDED);
    thread.AwaitAsleep();
    EXPECT_FALSE(thread.HasEnded(20));
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(ResumeThread(thread.Handle()), 1u);
    EXPECT_TRUE(thread.HasEnded());
    EXPECT_TRUE(TerminateThread(never.Handle(), 3));
    EXPECT_TRUE(never.HasEnded());
    EXPECT_EQ(never.ExitCode(), 3u);
    EXPECT_EQ(ran, 1);
}

namespace
{
struct Trace {
    explicit Trace(std::atomic<int>& target) : m_target(target) {}
    ~Trace() { ++m_target; }
    std::atomic<int>& m_target;
};
} // namespace

TEST(Thread, ThreadLocalsAreGoneWhenTheHandleIsSignalled)
{
    static std::atomic<int> destroyed{0};
    for (int i = 1; i <= 20; ++i) {
        TestThread thread([] {
            thread_local Trace trace(destroyed);
            static_cast<void>(trace.m_target.load());
            return 0u;
        });
        ASSERT_TRUE(thread.HasEnded());
#ifndef _WIN32
        ASSERT_EQ(destroyed, i);
#endif
    }
}

TEST(Thread, ThePriorityIsSeenByTheScheduler)
{
    TestThread thread([] { return 0u; }, CREATE_SUSPENDED);
    EXPECT_EQ(GetThreadPriority(thread.Handle()), THREAD_PRIORITY_NORMAL);
    EXPECT_TRUE(SetThreadPriority(thread.Handle(), THREAD_PRIORITY_IDLE));
    EXPECT_EQ(GetThreadPriority(thread.Handle()), THREAD_PRIORITY_IDLE);
#ifndef _WIN32
    EXPECT_EQ(sched_getscheduler(static_cast<pid_t>(thread.Id())), SCHED_IDLE);
#endif
    ResumeThread(thread.Handle());

    // A thread's own, and what it starts does not inherit it where that can be changed.
    TestThread idle([] {
        if (!SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_IDLE))
            return 1u;
        TestThread inner([] { return static_cast<unsigned>(GetThreadPriority(GetCurrentThread())); });
        return inner.HasEnded() ? static_cast<unsigned>(inner.ExitCode()) : 2u;
    });
    EXPECT_TRUE(idle.HasEnded());
    EXPECT_EQ(idle.ExitCode(), static_cast<DWORD>(THREAD_PRIORITY_NORMAL));
}

TEST(Thread, TerminationEndsAWaitAtOnceWithoutCleaningUp)
{
    const KernelHandle event = MakeEvent(false);
    const KernelHandle other = MakeEvent(false);
    const HANDLE both[] = {other.Get(), event.Get()};
    Child child("wait_for_input");
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(child.Id())));
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    std::atomic<int> cleaned{0};
    const std::function<void()> waits[] = {
        [&] { WaitForSingleObject(event.Get(), INFINITE); },
        [&] { WaitForMultipleObjects(2, both, FALSE, INFINITE); },
        [&] { Sleep(INFINITE); },
        [&] { WaitForSingleObject(process.Get(), INFINITE); },
        [&] { EnterCriticalSection(&section); },
    };
    for (const auto& wait : waits) {
        // A thread that Windows ends while it starts may take a lock of the runtime with it.
        const KernelHandle started = MakeEvent(true);
        TestThread thread([&] {
            const Trace trace(cleaned);
            SetEvent(started.Get());
            wait();
            return 1u;
        });
        ASSERT_EQ(WaitForSingleObject(started.Get(), kSoon), WAIT_OBJECT_0);
        thread.AwaitAsleep();
        EXPECT_TRUE(TerminateThread(thread.Handle(), 99));
        EXPECT_TRUE(thread.HasEnded());
        EXPECT_EQ(thread.ExitCode(), 99u);
    }
    EXPECT_EQ(cleaned, 0);
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
    // The dead waits take nothing.
    SetEvent(event.Get());
    EXPECT_TRUE(IsSignaled(event));
}

#ifndef _WIN32 // a thread that Windows ends anywhere may take a lock of the runtime with it
TEST(Thread, TerminationIsNeverLostOnTheWayIntoAWait)
{
    const KernelHandle event = MakeEvent(false);
    for (int i = 0; i < 300; ++i) {
        std::atomic<bool> started{false};
        TestThread thread([&]() -> unsigned {
            started = true;
            while (true)
                WaitForSingleObject(event.Get(), i % 3 == 0 ? INFINITE : 1);
        });
        if (i % 2 == 0)
            Eventually(kSoon, [&] { return started.load(); });
        ASSERT_TRUE(TerminateThread(thread.Handle(), 5));
        ASSERT_TRUE(thread.HasEnded());
        ASSERT_EQ(thread.ExitCode(), 5u);
        ASSERT_TRUE(TerminateThread(thread.Handle(), 6));
        ASSERT_EQ(thread.ExitCode(), 5u);
    }
    SetEvent(event.Get());
    EXPECT_TRUE(IsSignaled(event));
}

TEST(Thread, ManyTerminatedThreadsKeepNoMemory)
{
    const auto mappings = [] {
        std::ifstream file("/proc/self/maps");
        int count = 0;
        for (std::string line; std::getline(file, line);)
            ++count;
        return count;
    };
    const auto round = [] {
        TestThread thread([] {
            Sleep(INFINITE);
            return 0u;
        });
        TerminateThread(thread.Handle(), 0);
        ASSERT_TRUE(thread.HasEnded());
    };
    for (int i = 0; i < 50; ++i)
        round();
    const int before = mappings();
    for (int i = 0; i < 300; ++i)
        round();
    // A leaked stack is two mappings. A few remain cached.
    EXPECT_LT(mappings() - before, 100);
}
#endif

TEST(CriticalSection, ExcludesOthersAndIsRecursive)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    TestThread refused([&] { return static_cast<unsigned>(TryEnterCriticalSection(&section)); });
    EXPECT_TRUE(refused.HasEnded());
    EXPECT_EQ(refused.ExitCode(), 0u);
    LeaveCriticalSection(&section);
    long shared = 0; // no atomic: the section protects it
    const auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            EnterCriticalSection(&section);
            EXPECT_TRUE(TryEnterCriticalSection(&section)); // its owner may
            ++shared;
            LeaveCriticalSection(&section);
            LeaveCriticalSection(&section);
        }
        return 0u;
    };
    {
        TestThread a(add), b(add);
        add();
    }
    EXPECT_EQ(shared, 60000);
    DeleteCriticalSection(&section);
}

VLT_CHILD(wait_for_input)
{
    return StayUntilInputEnds();
}
