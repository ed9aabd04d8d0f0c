#include "tests/platform/Waiter.h"

#include <array>

using namespace vlt::test;
using vlt::KernelHandle;

TEST(Wait, TheLowestIndexIsTakenAndNothingElseConsumed)
{
    const KernelHandle events[] = {MakeEvent(false), MakeEvent(false, true), MakeEvent(true), MakeEvent(false, true)};
    const HANDLE handles[] = {events[0].Get(), events[1].Get(), events[2].Get(), events[3].Get()};
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0 + 3);
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_TIMEOUT);
    SetEvent(handles[2]);
    SetEvent(handles[0]);
    EXPECT_EQ(WaitForMultipleObjectsEx(4, handles, FALSE, 0, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjectsEx(4, handles, FALSE, 0, TRUE), WAIT_OBJECT_0 + 2);
    EXPECT_EQ(WaitForMultipleObjects(4, handles, FALSE, 0), WAIT_OBJECT_0 + 2);
}

TEST(Wait, AWaiterOfSeveralTakesOneAndLeavesTheOthersToTheRest)
{
    const KernelHandle first = MakeEvent(false);
    const KernelHandle second = MakeEvent(false);
    for (int round = 0; round < 200; ++round) {
        Waiter both({first.Get(), second.Get()});
        Waiter one({second.Get()});
        SetEvent(second.Get());
        SetEvent(first.Get());
        // Whichever of them took the second event, the other signal was left.
        const DWORD result = both.Result();
        ASSERT_TRUE(result == WAIT_OBJECT_0 || result == WAIT_OBJECT_0 + 1);
        if (result == WAIT_OBJECT_0 + 1) {
            ASSERT_TRUE(IsSignaled(first));
            SetEvent(second.Get());
        }
        ASSERT_EQ(one.Result(), WAIT_OBJECT_0);
        ASSERT_FALSE(IsSignaled(first));
        ASSERT_FALSE(IsSignaled(second));
    }
}

TEST(Wait, ManyObjectsAndOneHandleTwice)
{
    std::vector<KernelHandle> events;
    std::vector<HANDLE> handles;
    for (int i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) {
        events.push_back(MakeEvent(false));
        handles.push_back(events.back().Get());
    }
    handles[62] = handles[61];
    Waiter waiter(handles);
    SetEvent(handles[63]);
    EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0 + 63);
    Waiter twice(handles);
    SetEvent(handles[62]);
    EXPECT_EQ(twice.Result(), WAIT_OBJECT_0 + 61);
    EXPECT_EQ(WaitForMultipleObjects(64, handles.data(), FALSE, 1), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObjectEx(handles[0], 1, TRUE), WAIT_TIMEOUT);
}

TEST(Wait, ClosingTheHandleNeitherEndsNorFailsTheWait)
{
    if (!kSleepersAreSeen)
        GTEST_SKIP() << "this host does not tell when a thread sleeps";
    const KernelHandle keep = MakeEvent(true);
    KernelHandle first = MakeEvent(true);
    KernelHandle second = MakeEvent(true);
    Waiter single({first.Get()}, 100);
    Waiter several({second.Get(), keep.Get()});
    first.Reset();
    second.Reset();
    EXPECT_EQ(single.Result(), WAIT_TIMEOUT);
    EXPECT_EQ(several.Result(0), WAIT_IO_COMPLETION);
    SetEvent(keep.Get());
    EXPECT_EQ(several.Result(), WAIT_OBJECT_0 + 1);
}

TEST(Wait, BadArgumentsFailWithTheirCodes)
{
    const KernelHandle event = MakeEvent(false, true);
    std::array<HANDLE, 65> handles{};
    handles.fill(event.Get());
    EXPECT_FAILS(WaitForMultipleObjects(65, handles.data(), FALSE, 0) != WAIT_FAILED, ERROR_INVALID_PARAMETER);
    EXPECT_FAILS(WaitForMultipleObjects(0, handles.data(), FALSE, 0) != WAIT_FAILED, ERROR_INVALID_PARAMETER);
    // One bad handle fails the whole wait, although an earlier object is signalled.
    handles[2] = nullptr;
    EXPECT_FAILS(WaitForMultipleObjects(3, handles.data(), FALSE, 0) != WAIT_FAILED, ERROR_INVALID_HANDLE);
    EXPECT_TRUE(IsSignaled(event));
}

TEST(Wait, EventsThreadsAndProcessesMix)
{
    const KernelHandle event = MakeEvent(false);
    const KernelHandle go = MakeEvent(true);
    TestThread thread([&] { return WaitForSingleObject(go.Get(), kSoon); });
    Child child("wait_for_input");
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(child.Id())));
    ASSERT_TRUE(process);
    const std::vector<HANDLE> handles{event.Get(), thread.Handle(), process.Get()};
    {
        Waiter waiter(handles);
        SetEvent(event.Get());
        EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0);
    }
    {
        Waiter waiter(handles);
        child.CloseInput();
        EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0 + 2);
    }
    EXPECT_EQ(WaitForMultipleObjects(3, handles.data(), FALSE, 0), WAIT_OBJECT_0 + 2); // it stays signalled
    SetEvent(go.Get());
    EXPECT_TRUE(thread.HasEnded());
    EXPECT_EQ(WaitForMultipleObjects(3, handles.data(), FALSE, 0), WAIT_OBJECT_0 + 1);
}

VLT_CHILD(wait_for_input)
{
    return StayUntilInputEnds();
}
