// Numbers that the registry keeps enciphered (CipheredValueFormat.h), 32-bit view.
#pragma once

#include "platform/win32.h"

// Stores the number in *value and returns ERROR_SUCCESS. Otherwise *value is the fallback and the
// result is the system's code, or ERROR_INVALID_DATA when the value is not eight bytes of REG_BINARY.
LSTATUS GetRegIntValue(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD fallback, DWORD* value);

// Writes the number under a new salt, creating the key. ERROR_SUCCESS or the system's code.
LSTATUS SetRegIntValue(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD value);
