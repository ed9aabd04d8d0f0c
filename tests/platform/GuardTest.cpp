// The guard around the service main: what it catches, and what it lets pass.
#include "platform/Guard.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{

struct Raise {
    DWORD code;
    bool returned = false;
};

void RaiseCode(void* context)
{
    auto* raise = static_cast<Raise*>(context);
    RaiseException(raise->code, 0, 0, nullptr);
    raise->returned = true;
}

void DoNothing(void*) {}

void Throw(void*)
{
    throw std::runtime_error("of the program's own");
}

} // namespace

TEST(GuardTest, ReportsTheCodeOfWhatWasRaised)
{
    // Zero is as good as any; a service's exit code comes from here. Bit 28 is the system's own.
    for (const DWORD code : {0u, 5u, 1063u, 0xC0000005u, 0xE0000001u, 0xEFFFFFFFu}) {
        Raise raise{code};
        DWORD caught = 0x12345678;
        EXPECT_EQ(VltGuardedCall(RaiseCode, &raise, &caught), 0) << code;
        EXPECT_EQ(caught, code);
        EXPECT_FALSE(raise.returned);
    }
}

TEST(GuardTest, LetsEverythingElsePassAndLeavesTheCodeAlone)
{
    DWORD caught = 0x12345678;
    EXPECT_EQ(VltGuardedCall(DoNothing, nullptr, &caught), 1);
    EXPECT_THROW(VltGuardedCall(Throw, nullptr, &caught), std::runtime_error);
    EXPECT_EQ(caught, 0x12345678u);
}

#ifdef _WIN32
TEST(GuardTest, HandlesWhatTheProcessorRaises)
{
    DWORD caught = 0;
    EXPECT_EQ(VltGuardedCall([](void* target) { *static_cast<volatile int*>(target) = 1; }, nullptr, &caught), 0);
    EXPECT_EQ(caught, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
}
#endif
