#include "ARDCommon/Registry.h"

#include "platform/Unique.h"

#include <memory>
#include <new>

namespace vlt
{

namespace
{

RegKey OpenKey(HKEY root, LPCWSTR subKey, REGSAM access, RegView view)
{
    RegKey key;
    if (subKey != nullptr)
        RegOpenKeyExW(root, subKey, 0, access | static_cast<REGSAM>(view), key.Receive());
    return key;
}

// Reads a value of one type and of exactly the size of T.
template <typename T>
T ReadFixed(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD wantedType, T fallback, RegView view)
{
    if (name == nullptr)
        return fallback;
    const RegKey key = OpenKey(root, subKey, KEY_READ, view);
    if (!key)
        return fallback;
    T value{};
    DWORD type = REG_NONE;
    DWORD size = sizeof(value);
    const LSTATUS status = RegQueryValueExW(key.Get(), name, nullptr, &type, reinterpret_cast<LPBYTE>(&value), &size);
    return status == ERROR_SUCCESS && type == wantedType && size == sizeof(value) ? value : fallback;
}

bool WriteValue(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD type, const void* data, DWORD size, RegView view)
{
    if (subKey == nullptr || name == nullptr || (data == nullptr && size != 0))
        return false;
    RegKey key;
    if (RegCreateKeyExW(root, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_READ | KEY_WRITE | static_cast<REGSAM>(view), nullptr, key.Receive(),
                        nullptr) != ERROR_SUCCESS)
        return false;
    return RegSetValueExW(key.Get(), name, 0, type, static_cast<const BYTE*>(data), size) == ERROR_SUCCESS;
}

// One query answers for size and data together, so a value that grows in between cannot slip through.
bool QueryText(HKEY key, LPCWSTR name, LPWSTR buffer, DWORD bytes)
{
    DWORD type = REG_NONE;
    DWORD size = bytes;
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<LPBYTE>(buffer), &size) != ERROR_SUCCESS ||
        type != REG_SZ)
        return false;
    // The store does not promise a terminator, nor an even size.
    buffer[size / sizeof(WCHAR)] = 0;
    return true;
}

} // namespace

DWORD GetRegDword(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD fallback, RegView view)
{
    return ReadFixed<DWORD>(root, subKey, name, REG_DWORD, fallback, view);
}

ULONGLONG GetRegQword(HKEY root, LPCWSTR subKey, LPCWSTR name, ULONGLONG fallback)
{
    return ReadFixed<ULONGLONG>(root, subKey, name, REG_QWORD, fallback, RegView::Bits32);
}

bool GetRegString(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR fallback, LPWSTR buffer, DWORD size, RegView view)
{
    if (buffer == nullptr || size == 0)
        return false;
    // Of `size` characters at most half are filled, so the terminator always has room.
    if (size > 1 && name != nullptr) {
        const RegKey key = OpenKey(root, subKey, KEY_READ, view);
        if (key && QueryText(key.Get(), name, buffer, size))
            return true;
    }
    lstrcpynW(buffer, fallback != nullptr ? fallback : TEXT(""), static_cast<int>(size));
    return false;
}

bool GetRegStringA(HKEY root, LPCWSTR subKey, LPCSTR name, LPCSTR fallback, LPSTR buffer, DWORD size)
{
    if (buffer == nullptr || size == 0)
        return false;
    if (name != nullptr) {
        const RegKey key = OpenKey(root, subKey, KEY_READ, RegView::Bits32);
        DWORD type = REG_NONE;
        DWORD bytes = size;
        if (key &&
            RegQueryValueExA(key.Get(), name, nullptr, &type, reinterpret_cast<LPBYTE>(buffer), &bytes) ==
                ERROR_SUCCESS &&
            type == REG_SZ && (bytes < size || buffer[size - 1] == 0)) {
            if (bytes < size)
                buffer[bytes] = 0;
            return true;
        }
    }
    lstrcpynA(buffer, fallback != nullptr ? fallback : "", static_cast<int>(size));
    return false;
}

bool GetRegBytes(HKEY root, LPCWSTR subKey, LPCWSTR name, std::vector<BYTE>& data)
{
    data.clear();
    if (name == nullptr)
        return false;
    const RegKey key = OpenKey(root, subKey, KEY_READ, RegView::Bits32);
    DWORD size = 0;
    if (!key || RegQueryValueExW(key.Get(), name, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return false;
    try {
        // One byte more, for a query without a buffer would only ask for the size again.
        data.resize(std::size_t{size} + 1);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (RegQueryValueExW(key.Get(), name, nullptr, nullptr, data.data(), &size) != ERROR_SUCCESS) {
        data.clear();
        return false;
    }
    data.resize(size);
    return true;
}

bool SetRegDword(HKEY root, LPCWSTR subKey, LPCWSTR name, DWORD value, RegView view)
{
    return WriteValue(root, subKey, name, REG_DWORD, &value, sizeof(value), view);
}

bool SetRegQword(HKEY root, LPCWSTR subKey, LPCWSTR name, ULONGLONG value)
{
    return WriteValue(root, subKey, name, REG_QWORD, &value, sizeof(value), RegView::Bits32);
}

bool SetRegString(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR value, RegView view)
{
    if (value == nullptr)
        return false;
    const DWORD size = (static_cast<DWORD>(lstrlenW(value)) + 1) * static_cast<DWORD>(sizeof(WCHAR));
    return WriteValue(root, subKey, name, REG_SZ, value, size, view);
}

bool SetRegBytes(HKEY root, LPCWSTR subKey, LPCWSTR name, const void* data, DWORD size)
{
    return WriteValue(root, subKey, name, REG_BINARY, data, size, RegView::Bits32);
}

bool SetRegFileContent(HKEY root, LPCWSTR subKey, LPCWSTR name, LPCWSTR file)
{
    if (file == nullptr)
        return false;
    const FileHandle source(
        CreateFileW(file, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!source || !GetFileSizeEx(source.Get(), &size) || size.QuadPart < 0 || size.QuadPart > 0x7FFFFFFF)
        return false;
    const DWORD wanted = static_cast<DWORD>(size.QuadPart);
    const std::unique_ptr<BYTE[]> content(new (std::nothrow) BYTE[std::size_t{wanted} + 1]);
    if (content == nullptr)
        return false;
    DWORD read = 0;
    for (DWORD done = 0; done < wanted; done += read)
        if (!ReadFile(source.Get(), content.get() + done, wanted - done, &read, nullptr) || read == 0)
            return false;
    return SetRegBytes(root, subKey, name, content.get(), wanted);
}

bool RegValueExists(HKEY root, LPCWSTR subKey, LPCWSTR name)
{
    if (name == nullptr)
        return false;
    const RegKey key = OpenKey(root, subKey, KEY_READ, RegView::Bits32);
    return key && RegQueryValueExW(key.Get(), name, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

bool RegKeyExists(HKEY root, LPCWSTR subKey, RegView view)
{
    return static_cast<bool>(OpenKey(root, subKey, KEY_READ, view));
}

bool DeleteRegValue(HKEY root, LPCWSTR subKey, LPCWSTR name, RegView view)
{
    if (name == nullptr)
        return false;
    const RegKey key = OpenKey(root, subKey, KEY_ALL_ACCESS, view);
    return key && RegDeleteValueW(key.Get(), name) == ERROR_SUCCESS;
}

bool DeleteRegKey(HKEY root, LPCWSTR parent, LPCWSTR child, RegView view)
{
    // An empty child would name the parent itself.
    if (child == nullptr || *child == 0)
        return false;
    const RegKey key = OpenKey(root, parent, KEY_ALL_ACCESS, view);
    return key && RegDeleteKeyExW(key.Get(), child, static_cast<REGSAM>(view), 0) == ERROR_SUCCESS;
}

} // namespace vlt
