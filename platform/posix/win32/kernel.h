// Kernel objects: handles, waits, events, mutexes, semaphores, timers, threads, processes, critical sections.
//
// Handle values are validated table entries and are never used twice in a process's life: a stale,
// null or wrong-kind handle gives FALSE / WAIT_FAILED with ERROR_INVALID_HANDLE and reaches no
// other object. A wait in progress holds its own reference, so closing the handle in another thread
// neither ends nor fails it. Everything here may be called from any thread.
#pragma once

#include "base.h"

#define WAIT_OBJECT_0 0u
#define WAIT_ABANDONED 0x80u
#define WAIT_ABANDONED_0 0x80u
#define WAIT_IO_COMPLETION 0xC0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64
#define STILL_ACTIVE 259u

#define EVENT_MODIFY_STATE 0x0002u
#define EVENT_ALL_ACCESS 0x001F0003u

VLT_API BOOL CloseHandle(HANDLE handle);

VLT_API HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
VLT_API HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name);
VLT_API HANDLE OpenEventW(DWORD access, BOOL inherit, LPCWSTR name);
VLT_API HANDLE OpenEventA(DWORD access, BOOL inherit, LPCSTR name);
VLT_API BOOL SetEvent(HANDLE event);
VLT_API BOOL ResetEvent(HANDLE event);
VLT_API BOOL PulseEvent(HANDLE event);

#define MUTEX_MODIFY_STATE 0x0001u
#define MUTEX_ALL_ACCESS 0x001F0001u
// Owned by a thread, which may take it again and again. When an owner ends without having released it,
// one wait gets it with WAIT_ABANDONED.
VLT_API HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCWSTR name);
VLT_API HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES security, BOOL initialOwner, LPCSTR name);
VLT_API HANDLE OpenMutexW(DWORD access, BOOL inherit, LPCWSTR name);
VLT_API HANDLE OpenMutexA(DWORD access, BOOL inherit, LPCSTR name);
VLT_API BOOL ReleaseMutex(HANDLE mutex);

#define SEMAPHORE_MODIFY_STATE 0x0002u
#define SEMAPHORE_ALL_ACCESS 0x001F0003u
VLT_API HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCWSTR name);
VLT_API HANDLE CreateSemaphoreA(LPSECURITY_ATTRIBUTES security, LONG initial, LONG maximum, LPCSTR name);
VLT_API HANDLE OpenSemaphoreW(DWORD access, BOOL inherit, LPCWSTR name);
// ERROR_TOO_MANY_POSTS above the maximum, and the count is as before. `previous` may be null.
VLT_API BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LPLONG previous);

#define TIMER_QUERY_STATE 0x0001u
#define TIMER_MODIFY_STATE 0x0002u
#define TIMER_ALL_ACCESS 0x001F0003u
using PTIMERAPCROUTINE = void (*)(LPVOID argument, DWORD timeLow, DWORD timeHigh);
VLT_API HANDLE CreateWaitableTimerW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, LPCWSTR name);
VLT_API HANDLE OpenWaitableTimerW(DWORD access, BOOL inherit, LPCWSTR name);
// Due: 100 ns units, below 0 from now, otherwise since 1601 (UTC). Period: milliseconds, 0 for none; the
// periods that nobody waited for make one signal. Neither routine nor resume: ERROR_NOT_SUPPORTED.
VLT_API BOOL SetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE routine,
                              LPVOID argument, BOOL resume);
// A signalled timer stays signalled.
VLT_API BOOL CancelWaitableTimer(HANDLE timer);

VLT_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
VLT_API DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL alertable);
// waitAll must be FALSE; the lowest satisfied index is returned and only that object is consumed. For a
// mutex that its owner abandoned the index is added to WAIT_ABANDONED_0 instead of WAIT_OBJECT_0.
VLT_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);
VLT_API DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds,
                                       BOOL alertable);

#define CREATE_SUSPENDED 0x00000004u
#define THREAD_PRIORITY_IDLE (-15)
#define THREAD_PRIORITY_LOWEST (-2)
#define THREAD_PRIORITY_BELOW_NORMAL (-1)
#define THREAD_PRIORITY_NORMAL 0
#define THREAD_PRIORITY_ERROR_RETURN 0x7FFFFFFF

using VltThreadProc = unsigned (*)(void*);
VLT_API std::uintptr_t _beginthreadex(void* security, unsigned stackSize, VltThreadProc proc, void* argument,
                                      unsigned flags, unsigned* threadId);
VLT_API void _endthreadex(unsigned exitCode);
VLT_API DWORD ResumeThread(HANDLE thread);
VLT_API BOOL SetThreadPriority(HANDLE thread, int priority);
VLT_API int GetThreadPriority(HANDLE thread);
VLT_API BOOL TerminateThread(HANDLE thread, DWORD exitCode);
VLT_API BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);
VLT_API HANDLE GetCurrentThread();
VLT_API DWORD GetCurrentThreadId();
VLT_API void Sleep(DWORD milliseconds);

struct STARTUPINFOW {
    DWORD cb;
    LPWSTR lpReserved;
    LPWSTR lpDesktop;
    LPWSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
using LPSTARTUPINFOW = STARTUPINFOW*;

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
using LPPROCESS_INFORMATION = PROCESS_INFORMATION*;

#define CREATE_NO_WINDOW 0x08000000u
#define DETACHED_PROCESS 0x00000008u
#define PROCESS_TERMINATE 0x0001u
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000u

VLT_API BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                            LPSECURITY_ATTRIBUTES threadSecurity, BOOL inheritHandles, DWORD flags, LPVOID environment,
                            LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information);
VLT_API HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId);
VLT_API BOOL TerminateProcess(HANDLE process, UINT exitCode);
VLT_API BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
VLT_API HANDLE GetCurrentProcess();
VLT_API DWORD GetCurrentProcessId();

struct CRITICAL_SECTION {
    alignas(8) unsigned char storage[48];
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;
VLT_API void InitializeCriticalSection(LPCRITICAL_SECTION section);
VLT_API void EnterCriticalSection(LPCRITICAL_SECTION section);
VLT_API BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
VLT_API void LeaveCriticalSection(LPCRITICAL_SECTION section);
VLT_API void DeleteCriticalSection(LPCRITICAL_SECTION section);

inline LONG InterlockedExchange(volatile LONG* target, LONG value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedIncrement(volatile LONG* target)
{
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG* target)
{
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedCompareExchange(volatile LONG* target, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}

// Raises an exception that only the guarded call of platform/Guard.h handles. Does not return.
#define EXCEPTION_NONCONTINUABLE 0x1u
VLT_API void RaiseException(DWORD code, DWORD flags, DWORD argumentCount, const ULONG_PTR* arguments);

#define SECURITY_DESCRIPTOR_REVISION 1u
#define SECURITY_DESCRIPTOR_MIN_LENGTH 40u
using PSECURITY_DESCRIPTOR = void*;
using PACL = struct VltAcl*;
VLT_API BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
// Only the null DACL, access for everyone, is in the subset.
VLT_API BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted);
