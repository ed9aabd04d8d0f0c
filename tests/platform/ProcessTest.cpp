#include "tests/platform/Waiter.h"

#include <filesystem>

#ifndef _WIN32
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

using namespace vlt::test;
using vlt::KernelHandle;
namespace fs = std::filesystem;

namespace
{

struct Started {
    KernelHandle process;
    KernelHandle thread;
    DWORD id = 0;
    DWORD error = 0; // when it could not be started
};

Started Start(const WCHAR* application, WString commandLine, DWORD flags = 0)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    Started started;
    SetLastError(0);
    if (!CreateProcessW(application, commandLine.empty() ? nullptr : commandLine.data(), nullptr, nullptr, FALSE, flags,
                        nullptr, nullptr, &startup, &information)) {
        started.error = GetLastError();
        return started;
    }
    started.process.Reset(information.hProcess);
    started.thread.Reset(information.hThread);
    started.id = information.dwProcessId;
    return started;
}

DWORD ExitCode(const KernelHandle& process)
{
    DWORD code = 0xFFFFFFFF;
    EXPECT_EQ(WaitForSingleObject(process.Get(), kSoon), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(process.Get(), &code));
    return code;
}

WString OwnPath()
{
    WCHAR path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}
// A command line that runs a body of this program.
WString BodyCommand(const WString& program, const char* body, const WString& args = WString())
{
    return program + TEXT(" ") + vlt::ToWide(std::string("--vlt-child ") + body + " ", CP_UTF8) +
           vlt::ToWide(std::to_string(GetCurrentProcessId()), CP_UTF8) + args;
}
WString Quoted(const WString& path)
{
    return TEXT("\"") + path + TEXT("\"");
}

// Makes a program that ends with the first argument of the body that it is asked to run.
void MakeProgram(const fs::path& path)
{
#ifdef _WIN32
    const WString own = OwnPath();
    fs::copy_file(ProgramFolder() / own.substr(own.rfind(TEXT('\\')) + 1), path);
#else
    WriteBytes(path, "#!/bin/sh\nexit $4\n");
    fs::permissions(path, fs::perms::owner_all);
#endif
}

} // namespace

VLT_CHILD(exit_with)
{
    return std::atoi(args[0].c_str());
}
VLT_CHILD(stay)
{
    Sleep(INFINITE);
    return 0;
}
// Tells the arguments it got in its exit code.
VLT_CHILD(check_args)
{
    const std::vector<std::string> expected{"plain", "with blank", "quote\"d", "back\\slash\\", "", "end"};
    return std::vector<std::string>(args.begin(), args.end()) == expected ? 37 : static_cast<int>(args.size());
}

TEST(Process, ArgumentsArriveAsTheyWereQuoted)
{
    const Started started =
        Start(nullptr, BodyCommand(Quoted(OwnPath()), "check_args",
                                   TEXT(" plain  \"with blank\" quote\\\"d \"back\\slash\\\\\" \"\"  end ")));
    ASSERT_TRUE(started.process) << started.error;
    EXPECT_EQ(ExitCode(started.process), 37u);
    EXPECT_TRUE(IsSignaled(started.process));
    EXPECT_EQ(WaitForSingleObject(started.thread.Get(), kSoon), WAIT_OBJECT_0);
}

TEST(Process, AnUnquotedPathWithBlanksIsFoundByItsPrefixes)
{
    const TempFolder folder;
    fs::create_directory(folder.HostPath("a dir"));
#ifdef _WIN32
    const std::string extension = ".exe";
#else
    const std::string extension;
#endif
    const fs::path program = folder.HostPath("a dir/the tool" + extension);
    MakeProgram(program);
    const WString unquoted = folder.PathW("a dir") + TEXT("\\the tool");
    const Started started = Start(nullptr, BodyCommand(unquoted, "exit_with", TEXT(" 21")));
    ASSERT_TRUE(started.process) << started.error;
    EXPECT_EQ(ExitCode(started.process), 21u);
    // A shorter prefix that is a file comes first; a folder does not count.
    WriteBytes(folder.HostPath("a"), "not a program");
    EXPECT_EQ(Start(nullptr, BodyCommand(unquoted, "exit_with", TEXT(" 0"))).error, ERROR_BAD_EXE_FORMAT);
}

TEST(Process, WhatCannotBeStartedSaysWhy)
{
    const TempFolder folder;
    EXPECT_EQ(Start(nullptr, folder.PathW("missing.exe")).error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Start(nullptr, TEXT("vlt-no-such-program-anywhere and more")).error, ERROR_FILE_NOT_FOUND);
    WriteBytes(folder.HostPath("text.exe"), "this is no program\n");
    EXPECT_EQ(Start(folder.PathW("text.exe").c_str(), WString()).error, ERROR_BAD_EXE_FORMAT);
}

TEST(Process, TerminationGivesItsCodeToEveryHandle)
{
    for (const DWORD flags : {DWORD{0}, DWORD{CREATE_NO_WINDOW}, DWORD{DETACHED_PROCESS}}) {
        const Started started = Start(nullptr, BodyCommand(Quoted(OwnPath()), "stay"), flags);
        ASSERT_TRUE(started.process) << started.error;
        const KernelHandle second(
            OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, started.id));
        const KernelHandle waitOnly(OpenProcess(SYNCHRONIZE, FALSE, started.id));
        ASSERT_TRUE(second && waitOnly);
        EXPECT_FAILS(TerminateProcess(waitOnly.Get(), 1), ERROR_ACCESS_DENIED);
        const Waiter waiter({waitOnly.Get()});
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeProcess(second.Get(), &code));
        EXPECT_EQ(code, STILL_ACTIVE);
        EXPECT_TRUE(TerminateProcess(second.Get(), 1234));
        EXPECT_EQ(ExitCode(started.process), 1234u);
        EXPECT_EQ(ExitCode(second), 1234u);
        EXPECT_EQ(waiter.Result(), WAIT_OBJECT_0);
#ifndef _WIN32 // Wine lets it pass
        EXPECT_FAILS(TerminateProcess(second.Get(), 1), ERROR_ACCESS_DENIED);
#endif
    }
    EXPECT_FAILS(OpenProcess(SYNCHRONIZE, FALSE, 0x7FFFFFFC), ERROR_INVALID_PARAMETER);
}

#ifndef _WIN32
namespace
{
bool IsZombieOrGone(DWORD id, bool& gone)
{
    std::ifstream file("/proc/" + std::to_string(id) + "/stat");
    std::string pid;
    std::string name;
    std::string state;
    gone = !(file >> pid >> name >> state);
    return gone || state == "Z";
}
} // namespace

TEST(Process, AChildWhoseHandlesAreClosedLeavesNoZombie)
{
    // Closed before its end and after it.
    for (const bool early : {true, false}) {
        Started started = Start(nullptr, BodyCommand(Quoted(OwnPath()), early ? "stay" : "exit_with", TEXT(" 0")));
        ASSERT_TRUE(started.process);
        bool gone = false;
        if (!early) {
            ASSERT_TRUE(Eventually(kSoon, [&] { return IsZombieOrGone(started.id, gone); }));
        }
        started.process.Reset();
        started.thread.Reset();
        if (early)
            kill(static_cast<pid_t>(started.id), SIGKILL);
        EXPECT_TRUE(Eventually(kSoon, [&] { return IsZombieOrGone(started.id, gone) && gone; }));
    }
}

TEST(Process, AKilledOneHasANonZeroCode)
{
    const Started started = Start(nullptr, BodyCommand(Quoted(OwnPath()), "stay"));
    ASSERT_TRUE(started.process);
    kill(static_cast<pid_t>(started.id), SIGTERM);
    EXPECT_EQ(ExitCode(started.process), 128u + SIGTERM);
}

VLT_CHILD(has_descriptor)
{
    return fcntl(std::stoi(args[0]), F_GETFD) != -1;
}

TEST(Process, InheritsTheStandardStreamsOnly)
{
    const int leaky = fcntl(0, F_DUPFD, 200); // not close-on-exec
    ASSERT_GE(leaky, 200);
    const Started started = Start(nullptr, BodyCommand(Quoted(OwnPath()), "has_descriptor",
                                                       TEXT(" ") + vlt::ToWide(std::to_string(leaky), CP_UTF8)));
    ASSERT_TRUE(started.process);
    EXPECT_EQ(ExitCode(started.process), 0u);
    close(leaky);
}
#endif
