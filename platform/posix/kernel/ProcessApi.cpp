#include "platform/posix/core/Error.h"
#include "platform/posix/kernel/ProcessObject.h"
#include "platform/posix/kernel/ProcessStart.h"

#include <unistd.h>

using namespace vlt::posix;

namespace
{

// Windows' value; never in the handle table, whose values are multiples of 4.
const HANDLE CurrentProcess = INVALID_HANDLE_VALUE;

constexpr DWORD ProcessAllAccess = SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION;

HANDLE InsertProcess(const std::shared_ptr<ProcessRecord>& record, DWORD access)
{
    return InsertHandle(std::make_unique<ProcessObject>(record, access));
}

} // namespace

bool vlt::posix::DeliverChild(pid_t id, PROCESS_INFORMATION& information)
{
    const auto record = ProcessRecord::OfChild(id);
    if (!record) {
        AbandonProgram(id);
        return false;
    }
    // The first thread has no life of its own here: its handle is one more of the process.
    information.hProcess = InsertProcess(record, ProcessAllAccess);
    information.hThread = information.hProcess ? InsertProcess(record, ProcessAllAccess) : nullptr;
    if (!information.hThread) {
        record->Terminate(1);
        if (information.hProcess)
            CloseHandleOfKind(information.hProcess, MaskOf(ObjectKind::Process));
        return false;
    }
    information.dwProcessId = static_cast<DWORD>(id);
    information.dwThreadId = static_cast<DWORD>(id);
    return true;
}

BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                    LPSECURITY_ATTRIBUTES threadSecurity, BOOL inheritHandles, DWORD flags, LPVOID environment,
                    LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information)
{
    constexpr DWORD useShowWindow = 0x1; // of a program without windows: nothing to do
    if (processSecurity || threadSecurity || inheritHandles || (flags & ~(CREATE_NO_WINDOW | DETACHED_PROCESS)) != 0 ||
        environment || currentDirectory || (startup && (startup->dwFlags & ~useShowWindow) != 0)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    if ((!application && !commandLine) || !information) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const pid_t id = StartProgram(application, commandLine, flags != 0);
    if (id < 0)
        return FALSE;
    return DeliverChild(id, *information);
}

HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId)
{
    static_cast<void>(inherit); // no child process inherits handles
    if ((access & ~ProcessAllAccess) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    const auto record = ProcessRecord::Open(static_cast<pid_t>(processId));
    if (!record)
        return nullptr;
    if ((access & PROCESS_TERMINATE) != 0 && !record->MayTerminate()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return InsertProcess(record, access);
}

BOOL TerminateProcess(HANDLE process, UINT exitCode)
{
    if (process == CurrentProcess)
        _exit(static_cast<int>(exitCode));
    const auto target = Pin<ProcessObject>(process);
    return target && target->Grants(PROCESS_TERMINATE) && target->Record().Terminate(exitCode);
}

BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode)
{
    if (process == CurrentProcess) {
        *exitCode = STILL_ACTIVE;
        return TRUE;
    }
    const auto target = Pin<ProcessObject>(process);
    if (!target || !target->Grants(PROCESS_QUERY_LIMITED_INFORMATION))
        return FALSE;
    const auto code = target->Record().ExitCode();
    if (!code) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *exitCode = *code;
    return TRUE;
}

HANDLE GetCurrentProcess()
{
    return CurrentProcess;
}
DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}
