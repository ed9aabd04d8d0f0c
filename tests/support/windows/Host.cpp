#include "tests/support/Host.h"

#include "platform/Unique.h"

#include <cstdio>
#include <stdexcept>
#include <tlhelp32.h>

namespace fs = std::filesystem;

namespace vlt::test::host
{

// The machine is the computer itself, or the Wine prefix of the test run.
void MakeMachine()
{
    // A crash must end the process with a code, not wait for a click.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

void RemoveMachine() {}

fs::path ProgramPath()
{
    WString path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

WString TempBaseW()
{
    // The short form of a user's folder would make paths that compare unequal.
    return L"C:\\Temp\\vlt-test";
}

fs::path TempBase()
{
    return TempBaseW();
}

bool ParentEndedWithin(unsigned long parent, unsigned milliseconds)
{
    if (parent == 0) {
        Sleep(milliseconds);
        return false;
    }
    const KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(parent)));
    return !process || WaitForSingleObject(process.Get(), milliseconds) == WAIT_OBJECT_0;
}

unsigned long ProcessId()
{
    return GetCurrentProcessId();
}

// Without symbols of the GNU kind in the system's own stack walker, the instruction pointers are what
// can be had; addr2line turns them into lines, since programs are loaded at their link address there.
void DumpStacks()
{
    const DWORD process = GetCurrentProcessId();
    const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more; more = Thread32Next(snapshot.Get(), &entry)) {
        if (entry.th32OwnerProcessID != process || entry.th32ThreadID == GetCurrentThreadId())
            continue;
        const KernelHandle thread(OpenThread(THREAD_GET_CONTEXT | THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID));
        CONTEXT context{};
        context.ContextFlags = CONTEXT_CONTROL;
        if (!thread || SuspendThread(thread.Get()) == static_cast<DWORD>(-1))
            continue;
        const BOOL known = GetThreadContext(thread.Get(), &context);
        ResumeThread(thread.Get());
        std::fprintf(stderr, "--- thread %lu at %#llx\n", entry.th32ThreadID, known ? context.Rip : 0ULL);
    }
    std::fflush(stderr);
}

void Exit(int code)
{
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
    for (;;)
        Sleep(INFINITE);
}

} // namespace vlt::test::host
