// Single registry values: each call opens the key, makes one access and closes the key again.
//
// The product's values live in the 32-bit view of the registry, which is the default here; the 64-bit
// view is for the few that other programs keep there. No function reports why it failed: a reader
// gives its default, the others false. A null sub-key or name counts as a missing one. Text is UTF-16
// unless the name ends in A. Nothing is cached or locked; every function may be called from any thread,
// and a value that changes while it is read gives the old value, the new one or the default.
#pragma once

#include "platform/win32.h"

#include <vector>

namespace vlt
{

enum class RegView : REGSAM {
    Bits32 = KEY_WOW64_32KEY,
    Bits64 = KEY_WOW64_64KEY,
};

// The number of a REG_DWORD of four bytes.
DWORD GetRegDword(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD fallback, RegView view = RegView::Bits32);
// The number of a REG_QWORD of eight bytes.
ULONGLONG GetRegQword(HKEY root, LPCWSTR subKey, LPCWSTR name, ULONGLONG fallback);

// The text of a REG_SZ. buffer holds `size` characters; a value is accepted when its size in BYTES,
// terminator included, is not above that number, so only texts of up to half the buffer are (the
// margin is part of the format: it bounds what other programs may store). False, with the fallback
// cut to the buffer, for anything else. The result is always terminated.
bool GetRegString(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR fallback, LPWSTR buffer, DWORD size,
                  RegView view = RegView::Bits32);
// The same in the system code page; here a byte is a character, so the whole buffer can be filled.
bool GetRegStringA(HKEY root, LPCWSTR subKey, LPCSTR name, LPCSTR fallback, LPSTR buffer, DWORD size);

// The bytes of a value of any type; false and none when there is no such value, when it grew between
// the question for its size and the read, or when memory ran out.
bool GetRegBytes(HKEY root, LPCWSTR subKey, LPCWSTR name, std::vector<BYTE>& data);

// Writers create the key with all its parents.
bool SetRegDword(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD value, RegView view = RegView::Bits32);
bool SetRegQword(HKEY root, LPCWSTR subKey, LPCWSTR name, ULONGLONG value);
bool SetRegString(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR value, RegView view = RegView::Bits32);
bool SetRegBytes(HKEY root, LPCWSTR subKey, LPCWSTR name, const void* data, DWORD size);
// Stores the bytes of a whole file as REG_BINARY. The file is opened for shared reading; false when it
// cannot be read completely, and nothing is then written.
bool SetRegFileContent(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR file);

bool RegValueExists(HKEY root, LPCWSTR subKey, LPCWSTR name);
bool RegKeyExists(HKEY root, LPCWSTR subKey, RegView view = RegView::Bits32);

bool DeleteRegValue(HKEY root, LPCWSTR subKey, LPCWSTR name, RegView view = RegView::Bits32);
// Deletes the key `child` of `parent`; a child that has keys of its own stays.
bool DeleteRegKey(HKEY root, LPCWSTR parent, LPCWSTR child, RegView view = RegView::Bits32);

} // namespace vlt
