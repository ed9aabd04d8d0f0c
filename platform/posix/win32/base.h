// Base types, constants and error codes of the Windows subset, with the widths Windows x64 gives
// them: LONG and DWORD are 32 bits on every host, WCHAR is 16.
#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using WORD = std::uint16_t;
using USHORT = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using INT = std::int32_t;
using LONG = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;

using CHAR = char;
using WCHAR = char16_t;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using LPLONG = LONG*;
using PLONG = LONG*;
using LPBOOL = BOOL*;

using HANDLE = void*;
using HLOCAL = void*;
using HGLOBAL = void*;
using HMODULE = struct VltModule*;
using HINSTANCE = HMODULE;
using FARPROC = INT_PTR (*)();

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

// The calling convention of the x64 system interface is the default one.
#define WINAPI
#define CALLBACK
#define APIENTRY
#define __stdcall
#define __cdecl

#define VLT_API extern "C" __attribute__((visibility("default")))

#define TEXT(literal) VLT_TEXT_(literal)
#define VLT_TEXT_(literal) u##literal

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

#define DELETE 0x00010000u
#define READ_CONTROL 0x00020000u
#define WRITE_DAC 0x00040000u
#define SYNCHRONIZE 0x00100000u
#define STANDARD_RIGHTS_REQUIRED 0x000F0000u
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u

#define ERROR_SUCCESS 0u
#define NO_ERROR 0u
#define ERROR_INVALID_FUNCTION 1u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_PATH_NOT_FOUND 3u
#define ERROR_TOO_MANY_OPEN_FILES 4u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_INVALID_ACCESS 12u
#define ERROR_INVALID_DATA 13u
#define ERROR_OUTOFMEMORY 14u
#define ERROR_INVALID_DRIVE 15u
#define ERROR_CURRENT_DIRECTORY 16u
#define ERROR_NOT_SAME_DEVICE 17u
#define ERROR_NO_MORE_FILES 18u
#define ERROR_WRITE_PROTECT 19u
#define ERROR_BAD_LENGTH 24u
#define ERROR_WRITE_FAULT 29u
#define ERROR_READ_FAULT 30u
#define ERROR_GEN_FAILURE 31u
#define ERROR_SHARING_VIOLATION 32u
#define ERROR_HANDLE_EOF 38u
#define ERROR_NOT_SUPPORTED 50u
#define ERROR_BAD_NETPATH 53u
#define ERROR_FILE_EXISTS 80u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_BUFFER_OVERFLOW 111u
#define ERROR_DISK_FULL 112u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_INVALID_NAME 123u
#define ERROR_MOD_NOT_FOUND 126u
#define ERROR_PROC_NOT_FOUND 127u
#define ERROR_NEGATIVE_SEEK 131u
#define ERROR_DIR_NOT_EMPTY 145u
#define ERROR_BAD_PATHNAME 161u
#define ERROR_BUSY 170u
#define ERROR_ALREADY_EXISTS 183u
#define ERROR_ENVVAR_NOT_FOUND 203u
#define ERROR_BAD_EXE_FORMAT 193u
#define ERROR_FILENAME_EXCED_RANGE 206u
#define ERROR_MORE_DATA 234u
#define ERROR_NO_MORE_ITEMS 259u
#define ERROR_DIRECTORY 267u
#define ERROR_NOT_OWNER 288u
#define ERROR_TOO_MANY_POSTS 298u
#define ERROR_MR_MID_NOT_FOUND 317u
#define ERROR_INVALID_ADDRESS 487u
#define ERROR_IO_DEVICE 1117u
#define ERROR_NOACCESS 998u
#define ERROR_BADDB 1009u
#define ERROR_BADKEY 1010u
#define ERROR_KEY_DELETED 1018u
#define ERROR_INVALID_FLAGS 1004u
#define ERROR_INVALID_SERVICE_CONTROL 1052u
#define ERROR_SERVICE_REQUEST_TIMEOUT 1053u
#define ERROR_SERVICE_ALREADY_RUNNING 1056u
#define ERROR_SERVICE_DISABLED 1058u
#define ERROR_SERVICE_DOES_NOT_EXIST 1060u
#define ERROR_SERVICE_CANNOT_ACCEPT_CTRL 1061u
#define ERROR_SERVICE_NOT_ACTIVE 1062u
#define ERROR_FAILED_SERVICE_CONTROLLER_CONNECT 1063u
#define ERROR_EXCEPTION_IN_SERVICE 1064u
#define ERROR_SERVICE_SPECIFIC_ERROR 1066u
#define ERROR_PROCESS_ABORTED 1067u
#define ERROR_SERVICE_MARKED_FOR_DELETE 1072u
#define ERROR_SERVICE_EXISTS 1073u
#define ERROR_SERVICE_NEVER_STARTED 1077u
#define ERROR_SERVICE_NOT_IN_EXE 1083u
#define ERROR_NO_UNICODE_TRANSLATION 1113u
#define ERROR_DLL_INIT_FAILED 1114u
#define ERROR_PRIVILEGE_NOT_HELD 1314u
#define ERROR_NONE_MAPPED 1332u
#define ERROR_COMMITMENT_LIMIT 1455u
#define ERROR_RESOURCE_DATA_NOT_FOUND 1812u
#define ERROR_RESOURCE_TYPE_NOT_FOUND 1813u
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814u

VLT_API DWORD GetLastError();
VLT_API void SetLastError(DWORD code);
