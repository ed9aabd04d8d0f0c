#include "tests/support/Bodies.h"
#include "tests/support/Host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace vlt::test
{
namespace
{

// CTest's own limit would end the process without a word about where it hangs.
void StartWatchdog(unsigned long parent)
{
    const char* limit = std::getenv("VLT_TEST_TIMEOUT");
    const unsigned long seconds = limit ? std::strtoul(limit, nullptr, 10) : 0;
    if (seconds == 0 && parent == 0)
        return; // run by hand, perhaps in a debugger
    const unsigned milliseconds = seconds ? static_cast<unsigned>(seconds * 900) : 3600000u;
    std::thread([=] {
        if (host::ParentEndedWithin(parent, milliseconds))
            host::Exit(125);
        std::fprintf(stderr, "\n*** watchdog: process %lu still runs after %u ms\n", host::ProcessId(), milliseconds);
        std::fflush(stderr);
        host::DumpStacks();
        host::Exit(124);
    }).detach();
}

int RunChild(int argc, char** argv)
{
    StartWatchdog(std::strtoul(argv[3], nullptr, 10));
    const ChildFunction function = FindChildBody(argv[2]);
    if (!function) {
        std::fprintf(stderr, "no child body is named %s\n", argv[2]);
        return 126;
    }
    // Lines must reach the parent while the child goes on.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const std::vector<std::string> args(argv + 4, argv + argc);
    return function(args);
}

} // namespace
} // namespace vlt::test

int main(int argc, char** argv)
{
    using namespace vlt::test;
    if (argc >= 4 && std::strcmp(argv[1], kChildSwitch) == 0)
        return RunChild(argc, argv);

    host::MakeMachine();
    StartWatchdog(0);
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    host::RemoveMachine();
    return result;
}
