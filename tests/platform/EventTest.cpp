#include "tests/platform/Waiter.h"

#include <deque>
#include <gtest/gtest.h>

using namespace vlt::test;
using vlt::KernelHandle;

TEST(Event, ManualResetKeepsItsSignalAndAutoResetGivesItAway)
{
    const KernelHandle manual = MakeEvent(true, true);
    EXPECT_TRUE(IsSignaled(manual));
    EXPECT_TRUE(IsSignaled(manual));
    EXPECT_TRUE(ResetEvent(manual.Get()));
    EXPECT_FALSE(IsSignaled(manual));
    EXPECT_TRUE(SetEvent(manual.Get()));
    EXPECT_TRUE(IsSignaled(manual));

    const KernelHandle automatic = MakeEvent(false, true);
    EXPECT_TRUE(IsSignaled(automatic));
    EXPECT_FALSE(IsSignaled(automatic));
    // Signals are not counted.
    SetEvent(automatic.Get());
    SetEvent(automatic.Get());
    EXPECT_TRUE(IsSignaled(automatic));
    EXPECT_FALSE(IsSignaled(automatic));
    SetEvent(automatic.Get());
    ResetEvent(automatic.Get());
    EXPECT_FALSE(IsSignaled(automatic));
}

TEST(Event, APulseWithoutWaitersIsForgotten)
{
    for (const bool manualReset : {true, false}) {
        const KernelHandle event = MakeEvent(manualReset);
        EXPECT_TRUE(PulseEvent(event.Get()));
        EXPECT_FALSE(IsSignaled(event));
        SetEvent(event.Get());
        EXPECT_TRUE(PulseEvent(event.Get()));
        EXPECT_FALSE(IsSignaled(event));
    }
}

TEST(Event, AManualPulseReleasesEveryWaiterAndNobodyLater)
{
    const KernelHandle event = MakeEvent(true);
    const KernelHandle other = MakeEvent(true);
    std::deque<Waiter> waiters;
    for (int i = 0; i < 6; ++i) {
        // Singly and as a later one of several.
        if (i % 2 == 0)
            waiters.emplace_back(std::vector<HANDLE>{event.Get()});
        else
            waiters.emplace_back(std::vector<HANDLE>{other.Get(), event.Get()});
    }
    if (waiters.back().Exact())
        PulseEvent(event.Get());
    for (std::size_t i = 0; i < waiters.size(); ++i) {
        const DWORD result = waiters[i].Exact() ? waiters[i].Result() : PulseTo(event.Get(), waiters[i]);
        EXPECT_EQ(result, i % 2 == 0 ? WAIT_OBJECT_0 : WAIT_OBJECT_0 + 1);
    }
    EXPECT_FALSE(IsSignaled(event));
    Waiter late({event.Get()}, 50);
    EXPECT_EQ(late.Result(), WAIT_TIMEOUT);
}

TEST(Event, ASetThatIsResetAtOnceStillReleasesWhoWaited)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    for (const bool manualReset : {true, false}) {
        const KernelHandle event = MakeEvent(manualReset);
        Waiter waiter({event.Get()});
        SetEvent(event.Get());
        ResetEvent(event.Get());
        EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0);
        EXPECT_FALSE(IsSignaled(event));
    }
}

TEST(Event, AnAutoResetPulseReleasesOneWaiter)
{
    const KernelHandle event = MakeEvent(false);
    const KernelHandle other = MakeEvent(false);
    std::deque<Waiter> waiters;
    waiters.emplace_back(std::vector<HANDLE>{event.Get()});
    waiters.emplace_back(std::vector<HANDLE>{other.Get(), event.Get()});
    waiters.emplace_back(std::vector<HANDLE>{event.Get()});
    const auto released = [&] {
        int count = 0;
        for (const Waiter& waiter : waiters)
            count += waiter.Result(0) != WAIT_IO_COMPLETION;
        return count;
    };
    for (int expected = 1; expected <= 3; ++expected) {
        const bool exact = waiters.back().Exact();
        PulseEvent(event.Get());
        EXPECT_TRUE(Eventually(kSoon, [&] {
            if (!exact && released() < expected)
                PulseEvent(event.Get());
            return released() >= expected;
        }));
        EXPECT_FALSE(IsSignaled(event));
        if (exact) {
            EXPECT_EQ(released(), expected);
        }
    }
}

TEST(Event, PulsesInARowReleaseOneWaiterEachAndStopThere)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    const KernelHandle event = MakeEvent(false);
    constexpr int kWaiters = 24; // more than an event's word holds grants for
    std::deque<Waiter> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back(std::vector<HANDLE>{event.Get()});
    int released = 0;
    const auto count = [&] {
        released = 0;
        for (const Waiter& waiter : waiters)
            released += waiter.Result(0) == WAIT_OBJECT_0;
        return released;
    };
    for (int i = 0; i < 10; ++i)
        PulseEvent(event.Get());
    EXPECT_TRUE(Eventually(kSoon, [&] { return count() >= 10; }));
    // Nobody who comes now gets what is left, and there is nothing left.
    EXPECT_FALSE(IsSignaled(event));
    EXPECT_EQ(Waiter({event.Get()}, 20).Result(), WAIT_TIMEOUT);
    EXPECT_EQ(count(), 10);
    for (int i = 10; i < kWaiters; ++i) {
        SetEvent(event.Get());
        EXPECT_TRUE(Eventually(kSoon, [&] { return count() >= i + 1; }));
        EXPECT_EQ(released, i + 1);
    }
    EXPECT_FALSE(IsSignaled(event));
}

TEST(Event, SetsInARowReleaseAsManyWaitersAndTheRestStays)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    const KernelHandle event = MakeEvent(false);
    Waiter first({event.Get()});
    Waiter second({event.Get()});
    for (int i = 0; i < 3; ++i)
        SetEvent(event.Get());
    EXPECT_EQ(first.Result(), WAIT_OBJECT_0);
    EXPECT_EQ(second.Result(), WAIT_OBJECT_0);
    EXPECT_TRUE(IsSignaled(event));
    EXPECT_FALSE(IsSignaled(event));
}

TEST(Event, EachSignalIsTakenExactlyOnce)
{
    const KernelHandle event = MakeEvent(false);
    const KernelHandle taken = MakeEvent(false);
    const KernelHandle stop = MakeEvent(true);
    std::atomic<int> count{0};
    const auto take = [&] {
        const HANDLE handles[] = {stop.Get(), event.Get()};
        while (WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
            ++count;
            SetEvent(taken.Get());
        }
        return 0u;
    };
    constexpr int kRounds = 2000;
    {
        TestThread a(take);
        TestThread b(take);
        TestThread c(take);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_TRUE(SetEvent(event.Get()));
            ASSERT_EQ(WaitForSingleObject(taken.Get(), kSoon), WAIT_OBJECT_0);
        }
        SetEvent(stop.Get());
    }
    EXPECT_EQ(count, kRounds);
    EXPECT_FALSE(IsSignaled(event));
}

TEST(Event, HandlesAreCheckedAndNeverComeBack)
{
    KernelHandle event = MakeEvent(false);
    const HANDLE stale = event.Get();
    EXPECT_TRUE(CloseHandle(event.Release()));
#ifndef _WIN32 // Windows uses values again
    // Many objects later the old value still reaches none of them.
    std::vector<KernelHandle> others;
    for (int i = 0; i < 3000; ++i) {
        others.push_back(MakeEvent(true));
        if (i % 3 != 0)
            others.pop_back();
    }
#endif
    for (const HANDLE bad : {stale, HANDLE{nullptr}}) {
        SetLastError(0);
        EXPECT_FALSE(SetEvent(bad));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_FALSE(PulseEvent(bad));
        EXPECT_FALSE(ResetEvent(bad));
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(bad, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(bad));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    TestThread thread([] { return 0u; });
    SetLastError(0);
    EXPECT_FALSE(SetEvent(thread.Handle()));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Event, CreationSetsTheLastErrorAlsoOnSuccess)
{
    SetLastError(ERROR_GEN_FAILURE);
    const KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    EXPECT_TRUE(event);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    SetLastError(ERROR_GEN_FAILURE);
    const KernelHandle narrow(CreateEventA(nullptr, TRUE, TRUE, nullptr));
    EXPECT_TRUE(IsSignaled(narrow));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}
