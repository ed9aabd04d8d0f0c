#include "tests/platform/Waiter.h"

#include <deque>

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{
int Released(const std::deque<Waiter>& waiters)
{
    int count = 0;
    for (const Waiter& waiter : waiters)
        count += waiter.Result(0) != WAIT_IO_COMPLETION;
    return count;
}
} // namespace

TEST(Event, AManualPulseReleasesEveryWaiterAndNobodyLater)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    const KernelHandle event = MakeEvent(true);
    const KernelHandle other = MakeEvent(true);
    std::deque<Waiter> waiters;
    for (int i = 0; i < 6; ++i) {
        // Singly and as a later one of several.
        waiters.emplace_back(i % 2 == 0 ? std::vector{event.Get()} : std::vector{other.Get(), event.Get()});
    }
    PulseEvent(event.Get());
    for (std::size_t i = 0; i < waiters.size(); ++i)
        EXPECT_EQ(waiters[i].Result(), i % 2 == 0 ? WAIT_OBJECT_0 : WAIT_OBJECT_0 + 1);
    EXPECT_EQ(Waiter({event.Get()}, 50).Result(), WAIT_TIMEOUT);
    // Without waiters it is forgotten, and takes the signal with it.
    SetEvent(event.Get());
    PulseEvent(event.Get());
    EXPECT_FALSE(IsSignaled(event));
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

TEST(Event, PulsesAndSetsInARowReleaseOneWaiterEach)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    const KernelHandle event = MakeEvent(false);
    constexpr int kWaiters = 24; // more than an event's word holds grants for
    std::deque<Waiter> waiters;
    const KernelHandle other = MakeEvent(false);
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back(i % 2 ? std::vector{event.Get()} : std::vector{other.Get(), event.Get()});
    for (int i = 0; i < 10; ++i)
        PulseEvent(event.Get());
    EXPECT_TRUE(Eventually(kSoon, [&] { return Released(waiters) >= 10; }));
    // Nobody who comes now gets what is left, and there is nothing left.
    EXPECT_FALSE(IsSignaled(event));
    EXPECT_EQ(Waiter({event.Get()}, 20).Result(), WAIT_TIMEOUT);
    EXPECT_EQ(Released(waiters), 10);
    for (int i = 10; i < kWaiters; ++i) {
        SetEvent(event.Get());
        EXPECT_TRUE(Eventually(kSoon, [&] { return Released(waiters) >= i + 1; }));
        EXPECT_EQ(Released(waiters), i + 1);
    }
    EXPECT_FALSE(IsSignaled(event));
    // Sets in a row release as many, and one more stays.
    const Waiter first({event.Get()}), second({event.Get()});
    for (int i = 0; i < 3; ++i)
        SetEvent(event.Get());
    EXPECT_EQ(first.Result() + second.Result(), 2 * WAIT_OBJECT_0);
    EXPECT_TRUE(IsSignaled(event));
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
#ifndef _WIN32                        // Windows uses values again
    std::vector<KernelHandle> others; // none of which the old value reaches
    for (int i = 0; i < 3000; ++i)
        others.push_back(MakeEvent(true));
#endif
    for (const HANDLE bad : {stale, HANDLE{nullptr}}) {
        EXPECT_FAILS(SetEvent(bad), ERROR_INVALID_HANDLE);
        EXPECT_EQ(WaitForSingleObject(bad, 0), WAIT_FAILED);
        EXPECT_FAILS(CloseHandle(bad), ERROR_INVALID_HANDLE);
    }
    TestThread thread([] { return 0u; });
    EXPECT_FAILS(SetEvent(thread.Handle()), ERROR_INVALID_HANDLE);
}
