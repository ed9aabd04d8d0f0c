#include "tests/platform/Waiter.h"

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

constexpr LONGLONG kMillisecond = 10000;
constexpr LONGLONG kFar = -1000000 * kMillisecond;

KernelHandle Create(bool manualReset)
{
    return KernelHandle(CreateWaitableTimerW(nullptr, manualReset, nullptr));
}

bool Set(const KernelHandle& timer, LONGLONG due, LONG period = 0)
{
    LARGE_INTEGER time;
    time.QuadPart = due;
    return SetWaitableTimer(timer.Get(), &time, period, nullptr, nullptr, FALSE) != FALSE;
}

DWORD Await(const KernelHandle& timer, DWORD milliseconds = kSoon)
{
    return WaitForSingleObject(timer.Get(), milliseconds);
}

LONGLONG Today()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return static_cast<LONGLONG>((static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime);
}

} // namespace

TEST(Timer, BecomesDueAtItsTime)
{
    const KernelHandle timer = Create(false);
    EXPECT_EQ(Await(timer, 20), WAIT_TIMEOUT); // not set
    for (const LONGLONG due : {LONGLONG{0}, LONGLONG{1}, -30 * kMillisecond, Today() + 30 * kMillisecond}) {
        const ULONGLONG before = GetTickCount64();
        ASSERT_TRUE(Set(timer, due));
        EXPECT_EQ(Await(timer), WAIT_OBJECT_0);
        if (due < 0) { // a clock that counts in ticks of up to 16 ms
            EXPECT_GE(GetTickCount64() - before, 30u - 17u);
        }
        EXPECT_EQ(Await(timer, 0), WAIT_TIMEOUT); // taken
    }
    for (const LONGLONG never : {kFar, Today() - kFar, LONGLONG{1} << 62, -(LONGLONG{1} << 62)}) {
        ASSERT_TRUE(Set(timer, never));
        EXPECT_EQ(Await(timer, 1), WAIT_TIMEOUT);
    }
    const KernelHandle manual = Create(true);
    ASSERT_TRUE(Set(manual, -5 * kMillisecond, 5));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Await(manual), WAIT_OBJECT_0);
    ASSERT_TRUE(Set(manual, kFar));
    EXPECT_EQ(Await(manual, 0), WAIT_TIMEOUT);
}

TEST(Timer, PeriodsRepeatAndMissedOnesAreOne)
{
    const KernelHandle timer = Create(false);
    ASSERT_TRUE(Set(timer, 0, 10));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(Await(timer), WAIT_OBJECT_0);
    ASSERT_TRUE(CancelWaitableTimer(timer.Get()));
    Await(timer, 0); // the next signal may have come already
    const KernelHandle cancelled = Create(false);
    ULONGLONG before = 0;
    do { // until that was surely before its time
        before = GetTickCount64();
        ASSERT_TRUE(Set(cancelled, -100 * kMillisecond, 10));
        ASSERT_TRUE(CancelWaitableTimer(cancelled.Get()));
    } while (GetTickCount64() - before >= 60);
    EXPECT_EQ(Await(cancelled, 150), WAIT_TIMEOUT);
    ASSERT_TRUE(Set(timer, 0, 20));
    Sleep(400); // which nobody waits for
    int taken = 0;
    while (taken < 20 && Await(timer, 0) == WAIT_OBJECT_0)
        ++taken;
    EXPECT_GE(taken, 1);
    EXPECT_LT(taken, 15); // one, and those of this loop on a slow machine
    // Cancelling takes no signal back.
    ASSERT_TRUE(Set(cancelled, 0));
    ASSERT_TRUE(CancelWaitableTimer(cancelled.Get()));
    EXPECT_EQ(Await(cancelled), WAIT_OBJECT_0);
}

TEST(Timer, ASleeperFollowsItsNewTimes)
{
    const KernelHandle timer = Create(false);
    const KernelHandle event = MakeEvent(false);
    ASSERT_TRUE(Set(timer, kFar));
    const Waiter single({timer.Get()});
    const Waiter several({event.Get(), timer.Get()});
    ASSERT_TRUE(Set(timer, -10 * kMillisecond, 10)); // one signal for each
    EXPECT_EQ(single.Result(), WAIT_OBJECT_0);
    EXPECT_EQ(several.Result(), WAIT_OBJECT_0 + 1);
    ASSERT_TRUE(CancelWaitableTimer(timer.Get()));
}
