#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/system.h"

#include <cstdlib>
#include <mutex>
#include <string>

namespace
{

// getenv and setenv of one process exclude each other here; code that calls them directly does not.
std::mutex& EnvironmentLock()
{
    static std::mutex& lock = *new std::mutex;
    return lock;
}

} // namespace

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size)
{
    std::u16string value;
    {
        const std::lock_guard guard(EnvironmentLock());
        const char* const found = std::getenv(vlt::posix::Utf8FromUtf16(name).c_str());
        if (!found) {
            SetLastError(ERROR_ENVVAR_NOT_FOUND);
            return 0;
        }
        value = vlt::posix::Utf16FromUtf8(found);
    }
    if (size <= value.size())
        return static_cast<DWORD>(value.size() + 1);
    value.copy(buffer, value.size());
    buffer[value.size()] = 0;
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(value.size());
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
{
    const std::string narrow = name ? vlt::posix::Utf8FromUtf16(name) : std::string();
    if (narrow.empty() || narrow.find('=') != std::string::npos) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::lock_guard guard(EnvironmentLock());
    const int result =
        value ? setenv(narrow.c_str(), vlt::posix::Utf8FromUtf16(value).c_str(), 1) : unsetenv(narrow.c_str());
    if (result != 0)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return result == 0;
}
