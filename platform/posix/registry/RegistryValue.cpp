// Values: query, set, delete, enumerate; the 8-bit forms.
#include "platform/posix/core/Utf.h"
#include "platform/posix/registry/RegistryKey.h"
#include "platform/posix/registry/ValueStore.h"

#include <cstring>

namespace
{

using namespace vlt::posix;
using namespace vlt::posix::registry;

WStringView View(LPCWSTR text)
{
    return text ? WStringView(text) : WStringView();
}

bool IsText(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

std::span<const std::byte> Bytes(const BYTE* data, DWORD size)
{
    return {reinterpret_cast<const std::byte*>(data), size};
}

// Characters of a text value; a last odd byte is not one.
WStringView Units(std::span<const std::byte> data, WString& copy)
{
    copy.resize(data.size() / sizeof(WCHAR));
    if (!copy.empty())
        std::memcpy(copy.data(), data.data(), copy.size() * sizeof(WCHAR));
    return copy;
}

// The data rules of a query: a null buffer asks for the size only.
LSTATUS PutData(std::span<const std::byte> data, LPBYTE buffer, LPDWORD size)
{
    const auto needed = static_cast<DWORD>(data.size());
    const DWORD room = size ? *size : 0;
    if (size)
        *size = needed;
    if (!buffer)
        return ERROR_SUCCESS;
    if (room < needed)
        return ERROR_MORE_DATA;
    if (needed != 0)
        std::memcpy(buffer, data.data(), needed);
    return ERROR_SUCCESS;
}

// A text stored without its terminator gets one when the buffer has room; the count leaves it out.
void Terminate(const ValueView& view, LPBYTE buffer, DWORD room)
{
    const std::size_t size = view.data.size();
    if (!buffer || !IsText(view.type) || room < size + sizeof(WCHAR))
        return;
    WCHAR last = 0;
    if (size >= sizeof(last))
        std::memcpy(&last, view.data.data() + size - sizeof(last), sizeof(last));
    if (size < sizeof(last) || last != 0)
        std::memset(buffer + size, 0, sizeof(WCHAR));
}

// Finds the value and has `put` give its data to the caller.
template <typename Put>
LSTATUS Query(HKEY key, WStringView name, const DWORD* reserved, LPDWORD type, const BYTE* data, const DWORD* size,
              Put&& put)
{
    if (reserved || (data && !size))
        return ERROR_INVALID_PARAMETER;
    const KeyRef from(key, KEY_QUERY_VALUE);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    ValueBuffer buffer;
    ValueView view;
    const LSTATUS status = ReadValue(from.Folder(), name, buffer, view);
    if (status != ERROR_SUCCESS)
        return status;
    if (type)
        *type = view.type;
    return put(view);
}

} // namespace

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size)
{
    return Query(key, View(name), reserved, type, data, size, [&](const ValueView& view) {
        const DWORD room = size ? *size : 0;
        const LSTATUS status = PutData(view.data, data, size);
        Terminate(view, data, room);
        return status;
    });
}

LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size)
{
    return Query(key, Utf16FromUtf8(name ? name : ""), reserved, type, data, size, [&](const ValueView& view) {
        if (!IsText(view.type))
            return PutData(view.data, data, size);
        WString units;
        const std::string text = Utf8FromUtf16(Units(view.data, units));
        const DWORD room = size ? *size : 0;
        const LSTATUS status = PutData(std::as_bytes(std::span(text)), data, size);
        if (data && room > text.size() && (text.empty() || text.back() != '\0'))
            data[text.size()] = 0;
        return status;
    });
}

LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    const WStringView text = View(name);
    if (reserved != 0 || text.size() > MaxValueName)
        return ERROR_INVALID_PARAMETER;
    if (!data && size != 0)
        return ERROR_NOACCESS;
    const KeyRef from(key, KEY_SET_VALUE, true);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    return WriteValue(from.Folder(), text, type, Bytes(data, size));
}

LSTATUS RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    const WString wideName = Utf16FromUtf8(name ? name : "");
    if (!IsText(type) || (!data && size != 0))
        return RegSetValueExW(key, wideName.c_str(), reserved, type, data, size);
    const WString text = Utf16FromUtf8({reinterpret_cast<const char*>(data), size});
    return RegSetValueExW(key, wideName.c_str(), reserved, type, reinterpret_cast<const BYTE*>(text.data()),
                          static_cast<DWORD>(text.size() * sizeof(WCHAR)));
}

LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name)
{
    const KeyRef from(key, KEY_SET_VALUE);
    return from.Status() == ERROR_SUCCESS ? RemoveValue(from.Folder(), View(name)) : from.Status();
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved, LPDWORD type,
                      LPBYTE data, LPDWORD size)
{
    if (!name || !nameLength || reserved || (data && !size))
        return ERROR_INVALID_PARAMETER;
    const KeyRef from(key, KEY_QUERY_VALUE);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    ValueBuffer buffer;
    ValueView view;
    WString text;
    // A value deleted between the listing and the reading is not in the next listing.
    for (;;) {
        std::vector<std::string> files;
        LSTATUS status = ListFolder(from.Folder(), 'v', false, files);
        if (status != ERROR_SUCCESS)
            return status;
        if (index >= files.size())
            return ERROR_NO_MORE_ITEMS;
        status = ReadValueFile(from.Folder(), files[index].c_str(), buffer, view, text);
        if (status == ERROR_SUCCESS)
            break;
        if (status != ERROR_FILE_NOT_FOUND)
            return status;
    }
    if (text.size() >= *nameLength)
        return ERROR_MORE_DATA;
    text.copy(name, text.size());
    name[text.size()] = 0;
    *nameLength = static_cast<DWORD>(text.size());
    if (type)
        *type = view.type;
    const DWORD room = size ? *size : 0;
    const LSTATUS status = PutData(view.data, data, size);
    Terminate(view, data, room);
    return status;
}
