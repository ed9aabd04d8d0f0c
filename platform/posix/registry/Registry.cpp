// Keys: open, create, close, delete, enumerate, watch.
#include "platform/posix/core/Error.h"
#include "platform/posix/registry/RegistryKey.h"
#include "platform/posix/registry/RegistryWatch.h"

#include <cerrno>
#include <new>

namespace
{

using namespace vlt::posix;
using namespace vlt::posix::registry;

constexpr REGSAM BothViews = KEY_WOW64_32KEY | KEY_WOW64_64KEY;

WStringView View(LPCWSTR text)
{
    return text ? WStringView(text) : WStringView();
}

LSTATUS MakeHandle(const KeyBase& base, WStringView path, REGSAM access, Fd folder, PHKEY result)
{
    REGSAM granted = 0;
    const LSTATUS status = GrantAccess(folder.Get(), access, granted);
    if (status != ERROR_SUCCESS)
        return status;
    const bool isMachine = base.isMachine && path.find_first_not_of(u'\\') == WStringView::npos;
    std::unique_ptr<RegistryKeyObject> object(new (std::nothrow)
                                                  RegistryKeyObject(std::move(folder), isMachine, granted));
    if (!object)
        return ERROR_NOT_ENOUGH_MEMORY;
    const HANDLE handle = InsertHandle(std::move(object));
    if (!handle)
        return ERROR_NOT_ENOUGH_MEMORY;
    *result = reinterpret_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

// A name into the caller's buffer; *length counts characters, the terminator only on the way in.
LSTATUS PutName(WStringView text, LPWSTR buffer, LPDWORD length)
{
    if (text.size() >= *length)
        return ERROR_MORE_DATA;
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    *length = static_cast<DWORD>(text.size());
    return ERROR_SUCCESS;
}

} // namespace

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result)
{
    if (!result || (access & BothViews) == BothViews)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    if (options != 0)
        return ERROR_NOT_SUPPORTED;
    const WStringView path = View(subKey);
    const KeyRef from(key, 0, path.empty());
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    Fd folder;
    const LSTATUS status = OpenKeyFolder(from.Base(), path, access, folder);
    return status == ERROR_SUCCESS ? MakeHandle(from.Base(), path, access, std::move(folder), result) : status;
}

LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR className, DWORD options, REGSAM access,
                        LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition)
{
    if (!result || !subKey || reserved != 0 || (access & BothViews) == BothViews)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    if (options != REG_OPTION_NON_VOLATILE || security || (className && *className))
        return ERROR_NOT_SUPPORTED;
    const KeyRef from(key, 0, true);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    Fd folder;
    bool created = false;
    const LSTATUS status = MakeKeyFolder(from.Base(), subKey, access, folder, created);
    if (status != ERROR_SUCCESS)
        return status;
    if (disposition)
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return MakeHandle(from.Base(), subKey, access, std::move(folder), result);
}

LSTATUS RegCreateKeyW(HKEY key, LPCWSTR subKey, PHKEY result)
{
    return RegCreateKeyExW(key, subKey ? subKey : TEXT(""), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                           nullptr, result, nullptr);
}

LSTATUS RegCloseKey(HKEY key)
{
    const auto value = reinterpret_cast<ULONG_PTR>(key);
    if (value >= reinterpret_cast<ULONG_PTR>(HKEY_CLASSES_ROOT) && value <= reinterpret_cast<ULONG_PTR>(HKEY_USERS))
        return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    const bool closed = CloseHandleOfKind(reinterpret_cast<HANDLE>(key), MaskOf(ObjectKind::RegistryKey));
    SetLastError(error);
    return closed ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS RegDeleteKeyExW(HKEY key, LPCWSTR subKey, REGSAM view, DWORD reserved)
{
    if (!subKey || reserved != 0 || (view & BothViews) == BothViews)
        return ERROR_INVALID_PARAMETER;
    const KeyRef from(key, 0);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    const WStringView path = subKey;
    if (path.find_first_not_of(u'\\') == WStringView::npos)
        return ERROR_NOT_SUPPORTED;
    return RemoveKeyFolder(from.Base(), path, view);
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved, LPWSTR className,
                      LPDWORD classLength, FILETIME* lastWrite)
{
    if (!name || !nameLength || reserved || (className && !classLength))
        return ERROR_INVALID_PARAMETER;
    if (lastWrite)
        return ERROR_NOT_SUPPORTED;
    const KeyRef from(key, KEY_ENUMERATE_SUB_KEYS);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    std::vector<std::string> files;
    const LSTATUS status = ListFolder(from.Folder(), 'k', from.Base().isMachine, files);
    if (status != ERROR_SUCCESS)
        return status;
    if (index >= files.size())
        return ERROR_NO_MORE_ITEMS;
    if (className)
        *className = 0;
    if (classLength)
        *classLength = 0;
    return PutName(NameOfKey(from.Folder(), files[index].c_str()), name, nameLength);
}

LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous)
{
    const KeyRef from(key, KEY_NOTIFY);
    if (from.Status() != ERROR_SUCCESS)
        return from.Status();
    if (subtree || !asynchronous || filter != REG_NOTIFY_CHANGE_LAST_SET || !from.Object())
        return ERROR_NOT_SUPPORTED;
    if (IsDeleted(from.Folder()))
        return ERROR_KEY_DELETED;
    const std::shared_ptr<RegistryWatch> watch = from.Object()->Watch();
    if (watch)
        return watch->Arm(event);
    return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_NOT_ENOUGH_MEMORY; // too many watches, most likely
}
