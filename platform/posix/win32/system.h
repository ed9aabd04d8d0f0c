// Libraries, resources, text, memory, time and the rest of the system's small functions.
#pragma once

#include "base.h"

VLT_API HMODULE LoadLibraryW(LPCWSTR file);
VLT_API BOOL FreeLibrary(HMODULE module);
VLT_API FARPROC GetProcAddress(HMODULE module, LPCSTR name);
// A null module is the running program.
VLT_API DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
VLT_API HMODULE GetModuleHandleW(LPCWSTR name);
VLT_API int LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int size);

struct VS_FIXEDFILEINFO {
    DWORD dwSignature;
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};
VLT_API DWORD GetFileVersionInfoSizeW(LPCWSTR file, LPDWORD handle);
VLT_API BOOL GetFileVersionInfoW(LPCWSTR file, DWORD handle, DWORD size, LPVOID data);
// Only the root block "\\" is in the subset.
VLT_API BOOL VerQueryValueW(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, UINT* length);

#define CP_ACP 0u
#define CP_UTF8 65001u
// CP_ACP is UTF-8 on this host. A length of -1 means zero-terminated. Bytes that are not UTF-8
// become lone low surrogates U+DC80 to U+DCFF and come back as the same bytes.
VLT_API int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int textLength, LPWSTR buffer, int size);
VLT_API int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int textLength, LPSTR buffer, int size,
                                LPCSTR defaultChar, LPBOOL usedDefault);
VLT_API DWORD CharLowerBuffW(LPWSTR text, DWORD length);
VLT_API int lstrlenW(LPCWSTR text);
VLT_API int lstrlenA(LPCSTR text);
VLT_API LPWSTR lstrcpynW(LPWSTR target, LPCWSTR source, int size);
VLT_API LPSTR lstrcpynA(LPSTR target, LPCSTR source, int size);
VLT_API int lstrcmpW(LPCWSTR left, LPCWSTR right);
VLT_API int lstrcmpiW(LPCWSTR left, LPCWSTR right);
VLT_API int lstrcmpiA(LPCSTR left, LPCSTR right);

#define LMEM_FIXED 0x0u
#define LMEM_ZEROINIT 0x40u
#define LPTR 0x40u
#define GMEM_MOVEABLE 0x2u
#define GMEM_ZEROINIT 0x40u
VLT_API HLOCAL LocalAlloc(UINT flags, SIZE_T size);
VLT_API HLOCAL LocalFree(HLOCAL memory);
VLT_API HGLOBAL GlobalAlloc(UINT flags, SIZE_T size);
VLT_API LPVOID GlobalLock(HGLOBAL memory);
VLT_API BOOL GlobalUnlock(HGLOBAL memory);
VLT_API HGLOBAL GlobalFree(HGLOBAL memory);

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x200u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x1000u
#define LANG_NEUTRAL 0
#define SUBLANG_DEFAULT 1
#define MAKELANGID(primary, sub) ((static_cast<WORD>(sub) << 10) | static_cast<WORD>(primary))
// With FORMAT_MESSAGE_ALLOCATE_BUFFER `buffer` is the address of a pointer that receives a block for
// LocalFree. The text ends in CR LF. Returns the length, 0 when the code has no text.
VLT_API DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD size,
                             void* arguments);

VLT_API LPWSTR GetCommandLineW();

// SIGINT arrives as Ctrl-C; SIGTERM and SIGHUP arrive as a close, after which the program ends with
// that signal. Without a handler that returns TRUE, Ctrl-C ends it as well.
#define CTRL_C_EVENT 0u
#define CTRL_CLOSE_EVENT 2u
using PHANDLER_ROUTINE = BOOL (*)(DWORD event);
VLT_API BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add);

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
VLT_API void GetLocalTime(SYSTEMTIME* time);
VLT_API void GetSystemTimeAsFileTime(FILETIME* time);
VLT_API BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local);
VLT_API BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* time);
VLT_API ULONGLONG GetTickCount64();

#define VER_PLATFORM_WIN32_NT 2u
struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};
VLT_API BOOL GetVersionExW(OSVERSIONINFOW* version);

#define PROCESSOR_ARCHITECTURE_AMD64 9
struct SYSTEM_INFO {
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
VLT_API void GetNativeSystemInfo(SYSTEM_INFO* information);
VLT_API BOOL IsWow64Process(HANDLE process, LPBOOL wow64);

VLT_API BOOL GetUserNameA(LPSTR buffer, LPDWORD size);
VLT_API DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
VLT_API BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);

using PSID = void*;
enum SID_NAME_USE { SidTypeUser = 1, SidTypeUnknown = 8 };
struct SID_IDENTIFIER_AUTHORITY {
    BYTE Value[6];
};
VLT_API BOOL LookupAccountNameA(LPCSTR system, LPCSTR account, PSID sid, LPDWORD sidSize, LPSTR domain,
                                LPDWORD domainSize, SID_NAME_USE* use);
VLT_API SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID sid);
VLT_API BYTE* GetSidSubAuthorityCount(PSID sid);
VLT_API LPDWORD GetSidSubAuthority(PSID sid, DWORD index);
VLT_API BOOL IsValidSid(PSID sid);
