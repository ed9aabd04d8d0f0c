#include "ARDCommon/CipheredValue.h"

#include "ARDCommon/CipheredValueFormat.h"
#include "platform/Unique.h"

namespace
{

LSTATUS QueryCiphered(HKEY root, LPCWSTR subKey, LPCWSTR name, vlt::CipheredBytes& bytes)
{
    vlt::RegKey key;
    LSTATUS status = RegOpenKeyExW(root, subKey, 0, KEY_READ | KEY_WOW64_32KEY, key.Receive());
    if (status != ERROR_SUCCESS)
        return status;
    DWORD type = REG_NONE;
    DWORD size = static_cast<DWORD>(bytes.size());
    status = RegQueryValueExW(key.Get(), name, nullptr, &type, bytes.data(), &size);
    if (status == ERROR_MORE_DATA)
        return ERROR_INVALID_DATA;
    if (status == ERROR_SUCCESS && (type != REG_BINARY || size != bytes.size()))
        return ERROR_INVALID_DATA;
    return status;
}

} // namespace

LSTATUS GetRegIntValue(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD fallback, DWORD* value)
{
    vlt::CipheredBytes bytes{};
    const LSTATUS status = QueryCiphered(root, subKey, name, bytes);
    *value = status == ERROR_SUCCESS ? vlt::DecodeCipheredValue(bytes) : fallback;
    return status;
}

LSTATUS SetRegIntValue(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD value)
{
    // The salt only has to differ between writes: the clock's low half moves every 100 ns.
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    const vlt::CipheredBytes bytes = vlt::EncodeCipheredValue(value, now.dwLowDateTime ^ GetCurrentProcessId());

    vlt::RegKey key;
    const LSTATUS status = RegCreateKeyExW(root, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Receive(), nullptr);
    if (status != ERROR_SUCCESS)
        return status;
    return RegSetValueExW(key.Get(), name, 0, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size()));
}
