// Processes of the whole machine, login sessions, and programs started for their users.
//
// A session is a login as the kernel's audit identity knows it (/proc/<id>/sessionid): its number is
// the session's, and a process without one, as every service, is in session 0. A process that was
// started by CreateProcessAsUserW belongs to the session of the token: VLT_SESSION in its first
// environment says so and goes before the kernel's number. Only root sees other accounts' environments.
#pragma once

#include "base.h"

#define TH32CS_SNAPPROCESS 0x2u

struct PROCESSENTRY32W {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    WCHAR szExeFile[MAX_PATH];
};
using LPPROCESSENTRY32W = PROCESSENTRY32W*;
static_assert(sizeof(PROCESSENTRY32W) == 568 && offsetof(PROCESSENTRY32W, szExeFile) == 44);

// TH32CS_SNAPPROCESS alone. INVALID_HANDLE_VALUE with the last error on failure. Id, parent, number of
// threads and name of each process are given. The shell of a login session has the name "Explorer.EXE",
// whatever its program is: the session's oldest process on a terminal that is wholly its user's.
VLT_API HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
// FALSE with ERROR_NO_MORE_FILES at the end. dwSize must be set. A handle is for one thread at a time.
VLT_API BOOL Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry);
VLT_API BOOL Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry);

// ERROR_INVALID_PARAMETER when there is no such process.
VLT_API BOOL ProcessIdToSessionId(DWORD processId, LPDWORD sessionId);

#define TOKEN_ASSIGN_PRIMARY 0x1u
#define TOKEN_DUPLICATE 0x2u
#define TOKEN_QUERY 0x8u
// The credentials of a process: its user, its groups, its session and the terminal of that. ERROR_ACCESS_DENIED
// for a process of several identities (one that changes its user), of another user namespace or another
// root folder: a program of its user could do more than it can. A token stays as it was when opened.
VLT_API BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token);

// HOME, USER, LOGNAME, SHELL, PATH, VLT_SESSION and the machine root of this process, nothing else of
// its environment; inherit must be FALSE.
VLT_API BOOL CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit);
VLT_API BOOL DestroyEnvironmentBlock(LPVOID environment);

#define CREATE_UNICODE_ENVIRONMENT 0x400u
// As CreateProcessW, with the user, groups and no more rights than the token's; root alone may start
// for another user (otherwise ERROR_PRIVILEGE_NOT_HELD). The environment must be given, flags are
// CREATE_UNICODE_ENVIRONMENT, the desktop null or "WinSta0\Default". The program begins in the root
// folder, in a process session of its own; it reads nothing and writes to the session's terminal when the
// user may open that.
VLT_API BOOL CreateProcessAsUserW(HANDLE token, LPCWSTR application, LPWSTR commandLine,
                                  LPSECURITY_ATTRIBUTES processSecurity, LPSECURITY_ATTRIBUTES threadSecurity,
                                  BOOL inheritHandles, DWORD flags, LPVOID environment, LPCWSTR currentDirectory,
                                  struct STARTUPINFOW* startup, struct PROCESS_INFORMATION* information);
