// Files, folders and private profile files.
//
// A path may use both slashes, doubled ones too; names are found ignoring case and keep the case
// they were made with. Drive C: is drives/c of the machine root, drive Z: the root of the file
// system. A file name that is not valid UTF-8 survives the round trip as lone surrogates.
#pragma once

#include "base.h"

#define FILE_APPEND_DATA 0x0004u
#define FILE_SHARE_READ 1u
#define FILE_SHARE_WRITE 2u
#define FILE_SHARE_DELETE 4u
#define CREATE_NEW 1u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u
#define TRUNCATE_EXISTING 5u
#define FILE_ATTRIBUTE_READONLY 0x1u
#define FILE_ATTRIBUTE_HIDDEN 0x2u
#define FILE_ATTRIBUTE_SYSTEM 0x4u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_ARCHIVE 0x20u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_ATTRIBUTE_TEMPORARY 0x100u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x400u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu
#define INVALID_FILE_SIZE 0xFFFFFFFFu
#define FILE_BEGIN 0u
#define FILE_CURRENT 1u
#define FILE_END 2u
#define MOVEFILE_REPLACE_EXISTING 1u
#define MOVEFILE_COPY_ALLOWED 2u
#define MOVEFILE_DELAY_UNTIL_REBOOT 4u
#define DRIVE_UNKNOWN 0u
#define DRIVE_NO_ROOT_DIR 1u
#define DRIVE_REMOVABLE 2u
#define DRIVE_FIXED 3u

namespace vlt
{
template <typename Char>
struct FindData {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    Char cFileName[MAX_PATH];
    Char cAlternateFileName[14];
};
} // namespace vlt

using WIN32_FIND_DATAW = vlt::FindData<WCHAR>;
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;
using WIN32_FIND_DATAA = vlt::FindData<CHAR>;
using LPWIN32_FIND_DATAA = WIN32_FIND_DATAA*;

VLT_API HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                           DWORD attributes, HANDLE templateFile);
VLT_API HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                           DWORD attributes, HANDLE templateFile);
VLT_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, void* overlapped);
VLT_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, void* overlapped);
VLT_API DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD method);
VLT_API BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);
VLT_API BOOL FlushFileBuffers(HANDLE file);
VLT_API DWORD GetFileAttributesW(LPCWSTR path);
VLT_API DWORD GetFileAttributesA(LPCSTR path);
VLT_API BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes);
VLT_API BOOL SetFileAttributesA(LPCSTR path, DWORD attributes);
VLT_API BOOL DeleteFileW(LPCWSTR path);
VLT_API BOOL DeleteFileA(LPCSTR path);
VLT_API BOOL MoveFileW(LPCWSTR from, LPCWSTR to);
VLT_API BOOL MoveFileA(LPCSTR from, LPCSTR to);
// With MOVEFILE_DELAY_UNTIL_REBOOT the move, or without a target the deletion, is only put down, and
// carried out before the first service that starts after the system has.
VLT_API BOOL MoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags);
VLT_API BOOL MoveFileExA(LPCSTR from, LPCSTR to, DWORD flags);
VLT_API BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists);
VLT_API BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists);
VLT_API BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
VLT_API BOOL CreateDirectoryA(LPCSTR path, LPSECURITY_ATTRIBUTES security);
VLT_API BOOL RemoveDirectoryW(LPCWSTR path);
VLT_API BOOL SetCurrentDirectoryW(LPCWSTR path);
VLT_API DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer);
VLT_API UINT GetTempFileNameW(LPCWSTR folder, LPCWSTR prefix, UINT unique, LPWSTR result);
VLT_API DWORD GetTempPathW(DWORD size, LPWSTR buffer);
VLT_API DWORD GetFullPathNameW(LPCWSTR path, DWORD size, LPWSTR buffer, LPWSTR* filePart);
VLT_API DWORD GetShortPathNameW(LPCWSTR path, LPWSTR buffer, DWORD size);
VLT_API DWORD GetShortPathNameA(LPCSTR path, LPSTR buffer, DWORD size);
VLT_API UINT GetDriveTypeA(LPCSTR root);
VLT_API UINT GetDriveTypeW(LPCWSTR root);
VLT_API HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
VLT_API BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
VLT_API HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
VLT_API BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
VLT_API BOOL FindClose(HANDLE find);

VLT_API DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR buffer, DWORD size,
                                       LPCWSTR file);
VLT_API UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR file);
VLT_API BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file);
VLT_API DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR fallback, LPSTR buffer, DWORD size,
                                       LPCSTR file);
VLT_API UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT fallback, LPCSTR file);
VLT_API BOOL WritePrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file);
