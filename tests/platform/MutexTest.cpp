#include "tests/platform/Waiter.h"

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

KernelHandle Create(bool owned, const char* name = nullptr)
{
    return KernelHandle(CreateMutexA(nullptr, owned, name));
}

DWORD Take(HANDLE mutex, DWORD milliseconds = kSoon)
{
    return WaitForSingleObject(mutex, milliseconds);
}

// What a wait of another thread gives, which then releases the mutex as often as it can.
DWORD TakenElsewhere(HANDLE mutex, DWORD milliseconds = kSoon)
{
    DWORD result = WAIT_FAILED;
    TestThread([&] {
        result = Take(mutex, milliseconds);
        while (ReleaseMutex(mutex)) {
        }
        return 0u;
    }).HasEnded();
    return result;
}

} // namespace

// Takes the mutex and tells; then keeps it, or with a second argument passes it on and takes it again.
VLT_CHILD(mutex_owner)
{
    const KernelHandle mutex(OpenMutexA(MUTEX_ALL_ACCESS, FALSE, args[0].c_str()));
    std::printf("%lu\n", static_cast<unsigned long>(Take(mutex.Get())));
    while (args.size() > 1) {
        ReleaseMutex(mutex.Get());
        Take(mutex.Get());
    }
    return StayUntilInputEnds();
}

TEST(Mutex, AThreadOwnsItThroughAnyHandleUntilItReleasedAsOftenAsItTook)
{
    const std::string name = NarrowName("Named");
    const KernelHandle first = Create(true, name.c_str());
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    const KernelHandle second = Create(true, name.c_str()); // which does not take it
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    KernelHandle waitOnly(OpenMutexW(SYNCHRONIZE, FALSE, ObjectName("Named").c_str()));
    EXPECT_EQ(Take(waitOnly.Get(), 0), WAIT_OBJECT_0);
    waitOnly.Reset(); // closing gives nothing up
    EXPECT_TRUE(ReleaseMutex(second.Get()));
    EXPECT_EQ(TakenElsewhere(first.Get(), 20), WAIT_TIMEOUT); // nor could that thread release it
    EXPECT_TRUE(ReleaseMutex(first.Get()));
    EXPECT_FAILS(ReleaseMutex(first.Get()), ERROR_NOT_OWNER);
    EXPECT_EQ(TakenElsewhere(second.Get(), 0), WAIT_OBJECT_0);
}

TEST(Mutex, AThreadThatEndsAbandonsWhatItOwns)
{
    const std::string name = NarrowName("Abandoned");
    const KernelHandle event = MakeEvent(false);
    for (const bool terminated : {false, true}) {
        const KernelHandle mutex = Create(false, terminated ? name.c_str() : nullptr);
        const KernelHandle taken = MakeEvent(false);
        const KernelHandle go = MakeEvent(false);
        TestThread owner([&] {
            Take(mutex.Get());
            SetEvent(taken.Get());
            return Take(go.Get());
        });
        ASSERT_EQ(Take(taken.Get()), WAIT_OBJECT_0);
        Waiter waiter({event.Get(), mutex.Get()});
        if (terminated)
            TerminateThread(owner.Handle(), 7);
        else
            SetEvent(go.Get());
        EXPECT_EQ(waiter.Result(), WAIT_ABANDONED_0 + 1);
        EXPECT_EQ(TakenElsewhere(mutex.Get()), WAIT_ABANDONED); // the waiter's thread ended too
        EXPECT_EQ(TakenElsewhere(mutex.Get()), WAIT_OBJECT_0);
    }
}

TEST(Mutex, AKilledOwnerLeavesItToExactlyOneWaiter)
{
    const std::string name = NarrowName("Killed");
    const KernelHandle mutex = Create(false, name.c_str());
    const KernelHandle event = MakeEvent(false);
    for (int round = 0; round < 3; ++round) {
        Child owner("mutex_owner", {name});
        ASSERT_EQ(owner.ReadLine(), "0");
        EXPECT_EQ(Take(mutex.Get(), 50), WAIT_TIMEOUT);
        std::atomic<int> abandoned{0};
        std::atomic<int> plain{0};
        const auto wait = [&] {
            const HANDLE handles[] = {event.Get(), mutex.Get()};
            const DWORD result = WaitForMultipleObjects(2, handles, FALSE, kSoon);
            (result == WAIT_ABANDONED_0 + 1 ? abandoned : plain) += ReleaseMutex(mutex.Get());
            return 0u;
        };
        {
            TestThread first(wait), second(wait), third(wait);
            EXPECT_TRUE(round != 1 || first.AwaitAsleep() || !kSleepersAreSeen);
            owner.Kill();
        }
        EXPECT_EQ(abandoned, 1);
        EXPECT_EQ(plain, 2);
        // Without anybody who waits at that moment.
        Child next("mutex_owner", {name});
        ASSERT_EQ(next.ReadLine(), "0");
        next.Kill();
        next.Wait(kSoon);
        EXPECT_EQ(Take(mutex.Get(), 0), WAIT_ABANDONED);
        EXPECT_TRUE(ReleaseMutex(mutex.Get()));
    }
}

TEST(Mutex, ItCanBeTakenWhateverItsOwnersDiedOf)
{
    const std::string name = NarrowName("Churn");
    const KernelHandle mutex = Create(false, name.c_str());
    for (int round = 0; round < 15; ++round) {
        Child first("mutex_owner", {name, "again"});
        Child second("mutex_owner", {name, "again"});
        for (Child* child : {&first, &second}) {
            const std::string result = child->ReadLine();
            ASSERT_TRUE(result == "0" || result == "128") << result;
        }
        first.Kill();
        second.Kill();
        const DWORD result = Take(mutex.Get());
        ASSERT_TRUE(result == WAIT_OBJECT_0 || result == WAIT_ABANDONED) << result;
        ReleaseMutex(mutex.Get());
    }
}
