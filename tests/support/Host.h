// What the support library asks of the host that the tests run on.
#pragma once

#include "platform/win32.h"
#include "tests/support/Child.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace vlt::test::host
{

// Makes the machine of this process, before any code under test runs; removed at process end.
void MakeMachine();
void RemoveMachine();

std::filesystem::path ProgramPath();

// A folder on drive C: for temporary folders, as the host and as the product names it.
std::filesystem::path TempBase();
WString TempBaseW();

// Blocks for that time, or less when the parent process ends first; true when it ended.
bool ParentEndedWithin(unsigned long parent, unsigned milliseconds);

unsigned long ProcessId();

// Prints the stack of every thread to standard error, as far as the host can.
void DumpStacks();

// A started process with its standard input and output on pipes. Killed when the object goes.
class Process
{
public:
    enum class ReadResult { Data, End, TimeOut };

    virtual ~Process() = default;
    virtual int Wait(unsigned milliseconds) = 0; // exit code or Child::kStillRunning
    virtual void Kill() = 0;
    virtual ReadResult Read(std::string& appendTo, unsigned milliseconds) = 0;
    virtual bool Write(const std::string& text) = 0;
    virtual void CloseInput() = 0;
    virtual unsigned long Id() const = 0;
};

// Throws std::runtime_error when the process cannot be started.
std::unique_ptr<Process> StartProcess(const std::filesystem::path& program, const std::vector<std::string>& args,
                                      const Child::Environment& environment);

// Ends the process at once.
[[noreturn]] void Exit(int code);

} // namespace vlt::test::host
