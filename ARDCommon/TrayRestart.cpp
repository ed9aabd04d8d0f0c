#include "ARDCommon/TrayRestart.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Unique.h"

#include <set>
#include <vector>

namespace
{

constexpr LPCWSTR kTrayProgram = TEXT("ardguide.exe");
constexpr LPCWSTR kShell = TEXT("Explorer.EXE");
constexpr DWORD kEndWait = 5000;

struct Process {
    DWORD id;
    DWORD session;
};

struct Processes {
    std::vector<Process> shells; // one for each session
    std::vector<Process> trays;
};

struct EnvironmentBlockTraits : vlt::NullPointerTraits<void*> {
    static void Close(void* block) noexcept { DestroyEnvironmentBlock(block); }
};
using EnvironmentBlock = vlt::Unique<EnvironmentBlockTraits>;

Processes FindProcesses()
{
    Processes found;
    const vlt::FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        VLT_TRACE(20, "Error: CreateToolhelp32Snapshot err(%d)", GetLastError());
        return found;
    }
    std::set<DWORD> sessions; // a session may have several shell processes
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        const bool isShell = lstrcmpiW(entry.szExeFile, kShell) == 0;
        DWORD session = 0;
        if ((!isShell && lstrcmpiW(entry.szExeFile, kTrayProgram) != 0) ||
            !ProcessIdToSessionId(entry.th32ProcessID, &session))
            continue;
        if (!isShell)
            found.trays.push_back({entry.th32ProcessID, session});
        else if (sessions.insert(session).second)
            found.shells.push_back({entry.th32ProcessID, session});
    }
    return found;
}

void EndTray(const Process& tray)
{
    const vlt::KernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, tray.id));
    if (!process)
        return; // it has ended, or is none of ours to end
    if (TerminateProcess(process.Get(), 0))
        WaitForSingleObject(process.Get(), kEndWait);
}

bool StartTray(const Process& shell, const WString& program)
{
    const vlt::KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, shell.id));
    vlt::KernelHandle token;
    if (!process ||
        !OpenProcessToken(process.Get(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY, token.Receive()))
        return false;
    EnvironmentBlock environment;
    if (!CreateEnvironmentBlock(environment.Receive(), token.Get(), FALSE))
        return false;
    WString desktop = TEXT("WinSta0\\Default");
    WString commandLine = TEXT("\"") + program + TEXT("\"");
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop.data();
    PROCESS_INFORMATION information{};
    if (!CreateProcessAsUserW(token.Get(), program.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT, environment.Get(), nullptr, &startup, &information))
        return false;
    const vlt::KernelHandle started(information.hProcess), thread(information.hThread);
    return true;
}

} // namespace

void RestartOnAllSessions()
{
    VLT_TRACE(40, "start RestartOnAllSessions!");
    const WString program = vlt::ProgramFolder() + kTrayProgram;
    const Processes processes = FindProcesses();
    for (const Process& shell : processes.shells) {
        for (const Process& tray : processes.trays) {
            if (tray.session == shell.session)
                EndTray(tray);
        }
        if (StartTray(shell, program))
            VLT_TRACE(40, "started the tray program in session %u", shell.session);
        else
            VLT_TRACE(20, "Error: start of the tray program in session %u err(%d)", shell.session, GetLastError());
    }
    VLT_TRACE(40, "exit RestartOnAllSessions!");
}
