// Registry: two disjoint views under SOFTWARE, kept in the machine root's registry/ folder.
#pragma once

#include "base.h"

using HKEY = struct VltKey*;
using PHKEY = HKEY*;
using REGSAM = DWORD;
using LSTATUS = LONG;

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000003u))))

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY 0x0010u
#define KEY_CREATE_LINK 0x0020u
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_MULTI_SZ 7u
#define REG_QWORD 11u

#define REG_OPTION_NON_VOLATILE 0u
#define REG_CREATED_NEW_KEY 1u
#define REG_OPENED_EXISTING_KEY 2u
#define REG_NOTIFY_CHANGE_NAME 0x1u
#define REG_NOTIFY_CHANGE_LAST_SET 0x4u

VLT_API LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
VLT_API LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR className, DWORD options,
                                REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition);
VLT_API LSTATUS RegCreateKeyW(HKEY key, LPCWSTR subKey, PHKEY result);
VLT_API LSTATUS RegCloseKey(HKEY key);
VLT_API LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
VLT_API LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
VLT_API LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
VLT_API LSTATUS RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);
VLT_API LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name);
VLT_API LSTATUS RegDeleteKeyExW(HKEY key, LPCWSTR subKey, REGSAM view, DWORD reserved);
VLT_API LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved,
                              LPWSTR className, LPDWORD classLength, FILETIME* lastWrite);
VLT_API LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved, LPDWORD type,
                              LPBYTE data, LPDWORD size);
// Asynchronous only, not of the subtree, filter REG_NOTIFY_CHANGE_LAST_SET: sets the event once, at
// the next change of a value directly in the key by anyone. A change between two calls on the same
// key handle sets the event of the second at once; closing the key sets it too.
VLT_API LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous);
