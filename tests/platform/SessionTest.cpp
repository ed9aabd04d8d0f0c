#include "tests/platform/Waiter.h"

#include <optional>

#ifndef _WIN32
#include "tests/support/posix/FakeSession.h"
#endif

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

constexpr DWORD kTokenRights = TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY;

std::optional<PROCESSENTRY32W> Find(DWORD process)
{
    const vlt::FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        if (entry.th32ProcessID == process)
            return entry;
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    return std::nullopt;
}

DWORD IdOf(const Child& child)
{
    return static_cast<DWORD>(child.Id());
}

// Null with the last error set.
KernelHandle StartFor(const KernelHandle& token, LPCWSTR application, WString commandLine, DWORD& process)
{
    LPVOID environment = nullptr;
    if (!CreateEnvironmentBlock(&environment, token.Get(), FALSE))
        return {};
    WString desktop = TEXT("WinSta0\\Default");
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop.data();
    PROCESS_INFORMATION information{};
    const BOOL started = CreateProcessAsUserW(token.Get(), application, commandLine.data(), nullptr, nullptr, FALSE,
                                              CREATE_UNICODE_ENVIRONMENT, environment, nullptr, &startup, &information);
    const DWORD error = GetLastError();
    DestroyEnvironmentBlock(environment);
    SetLastError(error);
    if (!started)
        return {};
    CloseHandle(information.hThread);
    process = information.dwProcessId;
    return KernelHandle(information.hProcess);
}

} // namespace

VLT_CHILD(wait_for_input)
{
    return std::getchar() == EOF ? 0 : 1;
}
VLT_CHILD(exit_with)
{
    return std::atoi(args[0].c_str());
}

TEST(Session, SnapshotHoldsEveryProcessWithItsParentAndName)
{
    Child child("wait_for_input");
    const auto self = Find(GetCurrentProcessId()), other = Find(IdOf(child));
    ASSERT_TRUE(self && other);
    WCHAR path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    EXPECT_TRUE(WString(path).ends_with(TEXT("\\") + WString(self->szExeFile))) << vlt::ToNarrow(self->szExeFile);
    EXPECT_EQ(other->th32ParentProcessID, GetCurrentProcessId());
    EXPECT_EQ(WString(other->szExeFile), self->szExeFile);
    EXPECT_GE(self->cntThreads, 1u);

    child.Kill();
    child.Wait(kSoon);
    EXPECT_FALSE(Find(IdOf(child)));
}

TEST(Session, ProgramForTheOwnUserRunsInTheOwnSession)
{
    KernelHandle token;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), kTokenRights, token.Receive())) << GetLastError();
    WCHAR path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const WString body = TEXT("\"") + WString(path) + TEXT("\" --vlt-child exit_with ") +
                         vlt::ToWide(std::to_string(GetCurrentProcessId())) + TEXT(" 43");
    DWORD id = 0, code = 0;
    const KernelHandle process = StartFor(token, path, body, id);
    ASSERT_TRUE(process) << GetLastError();
    EXPECT_EQ(WaitForSingleObject(process.Get(), kSoon), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(process.Get(), &code));
    EXPECT_EQ(code, 43u);

    Child child("wait_for_input");
    DWORD own = 77, others = 78;
    EXPECT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &own));
    EXPECT_TRUE(ProcessIdToSessionId(IdOf(child), &others));
    EXPECT_EQ(own, others);
#ifndef _WIN32 // Wine answers for any number
    EXPECT_FAILS(ProcessIdToSessionId(0x7FFFFFF0, &own), ERROR_INVALID_PARAMETER);
#endif
}

#ifndef _WIN32
static KernelHandle TokenOf(DWORD process)
{
    const KernelHandle handle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process));
    KernelHandle token;
    OpenProcessToken(handle.Get(), kTokenRights, token.Receive());
    return token;
}

TEST(Session, LoginHasAShellAndItsProgramsHaveItsRights)
{
    if (RanAmongOwnProcesses())
        return;
    FakeSession login;
    ASSERT_TRUE(login.Works());
    const auto shell = Find(login.Shell());
    ASSERT_TRUE(shell);
    EXPECT_EQ(WString(shell->szExeFile), TEXT("Explorer.EXE"));
    DWORD session = 0;
    EXPECT_TRUE(ProcessIdToSessionId(login.Shell(), &session));
    EXPECT_EQ(session, login.Number());

    const KernelHandle token = TokenOf(login.Shell());
    ASSERT_TRUE(token) << GetLastError();
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("VLT_SECRET"), TEXT("the service's own")));
    DWORD id = 0;
    const KernelHandle process = StartFor(token, TEXT("Z:\\bin\\sh"),
                                          TEXT("sh -c \"id -u; id -G; pwd; env; ls -1 /proc/self/fd; read x || echo "
                                               "nothing to read; while :; do sleep 1000; done\""),
                                          id);
    ASSERT_TRUE(process) << GetLastError();
    EXPECT_TRUE(login.Shows("nothing to read"));
    const std::string& output = login.Output();
    EXPECT_TRUE(output.starts_with("65534\r\n65534 100\r\n/\r\n")) << output;
    EXPECT_EQ(output.find("VLT_SECRET"), std::string::npos) << output;
    EXPECT_NE(output.find("VLT_ROOT=/"), std::string::npos) << output;
    EXPECT_NE(output.find("0\r\n1\r\n2\r\n3\r\n"), std::string::npos) << output; // 3 is the folder itself
    EXPECT_TRUE(ProcessIdToSessionId(id, &session));
    EXPECT_EQ(session, login.Number());
    EXPECT_TRUE(TerminateProcess(process.Get(), 0));

    // Only root may start programs for others.
    ASSERT_EQ(seteuid(FakeSession::kUser), 0);
    const KernelHandle own(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, login.Shell()));
    EXPECT_FAILS(StartFor(token, TEXT("Z:\\bin\\true"), TEXT("true"), id), ERROR_PRIVILEGE_NOT_HELD);
    ASSERT_EQ(seteuid(0), 0);
}

TEST(Session, ProcessOfTwoUsersIsNoShellAndGivesNoToken)
{
    if (RanAmongOwnProcesses())
        return;
    FakeSession login(true);
    ASSERT_TRUE(login.Works());
    const auto shell = Find(login.Shell());
    ASSERT_TRUE(shell);
    EXPECT_NE(WString(shell->szExeFile), TEXT("Explorer.EXE"));
    EXPECT_FAILS(static_cast<bool>(TokenOf(login.Shell())), ERROR_ACCESS_DENIED);
}
#endif
