// Child processes of a test. A child is the test program itself, run again with the name of a body:
//
//     VLT_CHILD(holder) { HoldEvent(args[0]); std::puts("ready"); ... return 0; }
//     Child child("holder", {"Global\\X"});
//     EXPECT_EQ(child.ReadLine(), "ready");
//
// A child shares the machine root of its parent and ends when its parent does.
#pragma once

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vlt::test
{
namespace host
{
class Process;
}

class Child
{
public:
    static constexpr int kStillRunning = -1;
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // Starts the body of that name; throws std::runtime_error when the process cannot be started.
    explicit Child(const std::string& body, std::vector<std::string> args = {}, const Environment& environment = {});

    // Starts another program. Host path; the environment is added to the test's own.
    static Child Program(const std::filesystem::path& program, std::vector<std::string> args = {},
                         const Environment& environment = {});

    // Kills what is still running.
    ~Child();
    Child(Child&&) noexcept;
    Child& operator=(Child&&) = delete;

    // The exit code, or kStillRunning. A process ended by a signal has 128 + signal, a killed one 137
    // on both hosts.
    int Wait(unsigned milliseconds);

    // SIGKILL or TerminateProcess: no clean-up runs in the child.
    void Kill();

    // The next line of its standard output, without the line end; "" at the end of the output or
    // when the time is up.
    std::string ReadLine(unsigned milliseconds = 20000);

    // Writes a line to its standard input; false when it has ended.
    bool WriteLine(const std::string& text);

    // Ends its standard input.
    void CloseInput();

    unsigned long Id() const;

private:
    explicit Child(std::unique_ptr<host::Process> process);

    std::unique_ptr<host::Process> m_process;
    std::string m_output; // read but not yet returned
};

using ChildFunction = int (*)(std::span<const std::string> args);

// Registers a body during static initialisation.
struct ChildBody {
    ChildBody(const char* name, ChildFunction function);
};

} // namespace vlt::test

#define VLT_CHILD(name)                                                                                                \
    static int VltChild_##name(std::span<const std::string> args);                                                     \
    static const ::vlt::test::ChildBody g_vltChild_##name(#name, &VltChild_##name);                                    \
    static int VltChild_##name([[maybe_unused]] std::span<const std::string> args)
