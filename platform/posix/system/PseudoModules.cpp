// The system's own libraries, as far as the product looks functions up in them by name.
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"
#include "platform/posix/system/Module.h"
#include "platform/posix/win32/file.h"
#include "platform/posix/win32/system.h"

namespace
{

using namespace vlt::posix;

// There is no 32-bit view of the file system to be redirected to.
BOOL DisableRedirection(void** oldValue)
{
    if (oldValue)
        *oldValue = nullptr;
    SetLastError(ERROR_INVALID_FUNCTION);
    return FALSE;
}

BOOL RevertRedirection(void*)
{
    SetLastError(ERROR_INVALID_FUNCTION);
    return FALSE;
}

constexpr char16_t kWow64Folder[] = u"C:\\Windows\\SysWOW64";

// The length without the terminator, or the size needed with it.
template <typename Char>
UINT CopyText(std::basic_string_view<Char> text, Char* buffer, UINT size)
{
    const auto length = static_cast<UINT>(text.size());
    if (!buffer || size <= length)
        return length + 1;
    text.copy(buffer, length);
    buffer[length] = 0;
    return length;
}

UINT Wow64FolderW(LPWSTR buffer, UINT size)
{
    return CopyText(std::u16string_view(kWow64Folder), buffer, size);
}

UINT Wow64FolderA(LPSTR buffer, UINT size)
{
    return CopyText(std::string_view(Utf8FromUtf16(kWow64Folder)), buffer, size);
}

// No file is enciphered by the file system's own means.
constexpr DWORD kFileEncryptable = 0;

BOOL EncryptionStatusW(LPCWSTR path, LPDWORD status)
{
    if (!path || !status) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES)
        return FALSE;
    *status = kFileEncryptable;
    return TRUE;
}

BOOL EncryptionStatusA(LPCSTR path, LPDWORD status)
{
    return EncryptionStatusW(path ? Utf16FromUtf8(path).c_str() : nullptr, status);
}

template <typename Function>
FARPROC Entry(Function* function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function));
}

} // namespace

namespace vlt::posix
{

const PseudoModule* FindPseudoModule(std::u16string_view name)
{
    static const PseudoExport kernel[] = {
        {"GetNativeSystemInfo", Entry(&GetNativeSystemInfo)},
        {"GetSystemWow64DirectoryA", Entry(&Wow64FolderA)},
        {"GetSystemWow64DirectoryW", Entry(&Wow64FolderW)},
        {"IsWow64Process", Entry(&IsWow64Process)},
        {"Wow64DisableWow64FsRedirection", Entry(&DisableRedirection)},
        {"Wow64RevertWow64FsRedirection", Entry(&RevertRedirection)},
    };
    static const PseudoExport advapi[] = {
        {"FileEncryptionStatusA", Entry(&EncryptionStatusA)},
        {"FileEncryptionStatusW", Entry(&EncryptionStatusW)},
    };
    static const PseudoModule modules[] = {{u"kernel32.dll", kernel}, {u"advapi32.dll", advapi}};
    const std::u16string folded = FoldCase(name);
    for (const PseudoModule& module : modules) {
        if (folded == module.name)
            return &module;
    }
    return nullptr;
}

} // namespace vlt::posix
