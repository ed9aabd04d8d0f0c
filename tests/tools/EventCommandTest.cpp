// vlctl event, as an operator or a script uses it.
#include "platform/Text.h"
#include "tests/platform/Waiter.h"
#include "tests/service/Installation.h"

#include <gtest/gtest.h>

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

Child Event(const std::string& command, const std::string& name, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"event", command, name});
    return Child::Program(Installation::Built("vlctl"), options);
}
int ExitOf(const std::string& command, const std::string& name, std::vector<std::string> options = {})
{
    return Event(command, name, std::move(options)).Wait(kSoon);
}
KernelHandle Make(const std::string& name)
{
    return KernelHandle(CreateEventA(nullptr, TRUE, FALSE, name.c_str()));
}

} // namespace

TEST(EventCommand, SignalsAndWaitsForAnEventOfAnotherProcess)
{
    const std::string name = NarrowName("Event");
    EXPECT_EQ(ExitOf("set", name), 1);
    EXPECT_EQ(ExitOf("wait", name, {"--timeout", "0"}), 1);
    const KernelHandle event = Make("Global\\" + name);
    EXPECT_EQ(ExitOf("set", name), 0);
    EXPECT_TRUE(IsSignaled(event));
    Child waiting = Event("wait", "Global\\" + name);
    EXPECT_EQ(waiting.ReadLine(), "Global\\" + name + ": signalled");
    EXPECT_EQ(waiting.Wait(kSoon), 0);
    EXPECT_EQ(ExitOf("reset", name), 0);
    EXPECT_FALSE(IsSignaled(event));
    EXPECT_EQ(ExitOf("wait", name, {"--timeout", "1"}), 1);
    // A pulse is seen by who waits, and by nobody later.
    Waiter waiter({event.Get()});
    EXPECT_TRUE(Eventually(kSoon, [&] {
        EXPECT_EQ(ExitOf("pulse", name), 0);
        return waiter.Result(10) == WAIT_OBJECT_0;
    }));
    EXPECT_FALSE(IsSignaled(event));

    // One that it makes is there as long as it waits.
    const std::string own = name + "Own";
    Child making = Event("wait", "Local\\" + own, {"--create"});
    EXPECT_TRUE(Eventually(kSoon, [&] { return ExitOf("set", own, {"--local"}) == 0; }));
    EXPECT_EQ(making.Wait(kSoon), 0);
    EXPECT_EQ(ExitOf("set", own, {"--local"}), 1);
    EXPECT_EQ(ExitOf("set", own, {"--create"}), 0);

    const KernelHandle section(
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 16, ("Global\\" + own).c_str()));
    EXPECT_EQ(ExitOf("set", own), 2);
    EXPECT_EQ(ExitOf("set", "Global\\a\\b"), 64);
    EXPECT_EQ(ExitOf("set", ""), 64);
    EXPECT_EQ(ExitOf("wait", name, {"--timeout", "-1"}), 64);
}
