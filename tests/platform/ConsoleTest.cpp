#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

using namespace vlt::test;

namespace
{

HANDLE g_called = nullptr;

// Says which event it is on standard output.
BOOL WINAPI Handle(DWORD event)
{
    std::printf("event %u\n", static_cast<unsigned>(event));
    SetEvent(g_called);
    return TRUE;
}

} // namespace

static BOOL WINAPI Decline(DWORD)
{
    return FALSE;
}

// Handles one Ctrl-C and goes on; then what the next one does is the test's business.
VLT_CHILD(console_program)
{
    if (args[0] == "ignored")
        std::signal(SIGHUP, SIG_IGN);
    const vlt::KernelHandle called(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    g_called = called.Get();
    if (!SetConsoleCtrlHandler(Handle, TRUE) || !SetConsoleCtrlHandler(Decline, TRUE))
        return 1;
    std::puts("ready");
    WaitForSingleObject(g_called, INFINITE);
    if (args[0] == "removed")
        SetConsoleCtrlHandler(Handle, FALSE);
    std::puts("handled");
    Sleep(INFINITE);
    return 0;
}

TEST(ControlHandler, AHandledCtrlCIsOverAndACloseEndsTheProgram)
{
    if (!kSignalsArrive)
        GTEST_SKIP() << "the thread sanitizer delays signals";
    const struct {
        const char* name;
        int last;
        const char* said; // before the program ends
        int exit;
    } cases[] = {
        {"kept", SIGTERM, "event 2", 128 + SIGTERM},
        {"kept", SIGHUP, "event 2", 128 + SIGHUP},
        {"removed", SIGINT, "", 128 + SIGINT},
        {"ignored", SIGTERM, "event 2", 128 + SIGTERM},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Child child("console_program", {each.name});
        ASSERT_EQ(child.ReadLine(), "ready");
        if (each.name == std::string("ignored"))
            kill(static_cast<pid_t>(child.Id()), SIGHUP);
        kill(static_cast<pid_t>(child.Id()), SIGINT);
        EXPECT_EQ(child.ReadLine(), "event 0");
        EXPECT_EQ(child.ReadLine(), "handled");
        kill(static_cast<pid_t>(child.Id()), each.last);
        EXPECT_EQ(child.ReadLine(), each.said);
        EXPECT_EQ(child.Wait(20000), each.exit);
    }
}
