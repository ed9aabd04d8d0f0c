#include "tests/platform/Waiter.h"

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

LONG ReleasedFrom(const KernelHandle& semaphore, LONG count)
{
    LONG previous = -1;
    return ReleaseSemaphore(semaphore.Get(), count, &previous) ? previous : -1;
}

} // namespace

VLT_CHILD(semaphore_taker)
{
    const KernelHandle semaphore(OpenSemaphoreW(SYNCHRONIZE, FALSE, vlt::ToWide(args[0], CP_UTF8).c_str()));
    std::puts("ready");
    while (WaitForSingleObject(semaphore.Get(), kSoon) == WAIT_OBJECT_0) {
        std::puts("taken");
    }
    return 1;
}

TEST(Semaphore, CountsWithinItsMaximum)
{
    const KernelHandle semaphore(CreateSemaphoreW(nullptr, 1, 3, nullptr));
    EXPECT_TRUE(IsSignaled(semaphore));
    EXPECT_FALSE(IsSignaled(semaphore));
    EXPECT_EQ(ReleasedFrom(semaphore, 2), 0);
    EXPECT_FAILS(ReleaseSemaphore(semaphore.Get(), 2, nullptr), ERROR_TOO_MANY_POSTS);
    EXPECT_FAILS(ReleaseSemaphore(semaphore.Get(), 0x7FFFFFFF, nullptr), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(ReleasedFrom(semaphore, 1), 2); // the failures left it alone
#ifndef _WIN32                                // Wine takes any count below 1
    EXPECT_FAILS(ReleaseSemaphore(semaphore.Get(), 0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_FAILS(ReleaseSemaphore(semaphore.Get(), -1, nullptr), ERROR_INVALID_PARAMETER);
#endif
    for (const auto& [initial, maximum] : {std::pair<LONG, LONG>{-1, 1}, {2, 1}, {0, 0}, {0, -1}})
        EXPECT_FAILS(CreateSemaphoreW(nullptr, initial, maximum, nullptr), ERROR_INVALID_PARAMETER);
}

TEST(Semaphore, ProcessesShareItAndAKilledWaiterTakesNothing)
{
    const std::string name = NarrowName("Shared");
    const KernelHandle semaphore(CreateSemaphoreA(nullptr, 0, 5, name.c_str()));
    const KernelHandle again(CreateSemaphoreA(nullptr, 3, 3, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(IsSignaled(again));
    const KernelHandle waitOnly(OpenSemaphoreW(SYNCHRONIZE, FALSE, ObjectName("Shared").c_str()));
    EXPECT_FAILS(ReleaseSemaphore(waitOnly.Get(), 1, nullptr), ERROR_ACCESS_DENIED);
    Child first("semaphore_taker", {name});
    Child second("semaphore_taker", {name});
    ASSERT_EQ(first.ReadLine() + second.ReadLine(), "readyready");
    first.Kill();
    first.Wait(kSoon);
    EXPECT_EQ(ReleasedFrom(again, 2), 0);
    EXPECT_EQ(second.ReadLine() + second.ReadLine(), "takentaken");
    EXPECT_EQ(ReleasedFrom(semaphore, 5), 0); // the first one's maximum
}
