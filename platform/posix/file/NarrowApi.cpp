// The 8-bit forms of the functions on paths, in UTF-8, over the wide ones.
#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/file.h"

#include <cstring>
#include <optional>

using vlt::posix::Utf16FromUtf8;
using vlt::posix::Utf8FromUtf16;

namespace
{

// A text for the length of one call; null stays null.
class Wide
{
public:
    explicit Wide(LPCSTR text)
    {
        if (text)
            m_text = Utf16FromUtf8(text);
    }
    operator LPCWSTR() const { return m_text ? m_text->c_str() : nullptr; } // NOLINT: implicit on purpose

private:
    std::optional<std::u16string> m_text;
};

// A host's name of 255 bytes at most comes back as it is there.
void CopyFound(const WIN32_FIND_DATAW& from, WIN32_FIND_DATAA& to)
{
    static_assert(offsetof(WIN32_FIND_DATAA, cFileName) == offsetof(WIN32_FIND_DATAW, cFileName));
    to = {};
    std::memcpy(&to, &from, offsetof(WIN32_FIND_DATAA, cFileName));
    const std::string name = Utf8FromUtf16(from.cFileName);
    name.copy(to.cFileName, MAX_PATH - 1);
}

} // namespace

DWORD GetFileAttributesA(LPCSTR path)
{
    return GetFileAttributesW(Wide(path));
}

BOOL SetFileAttributesA(LPCSTR path, DWORD attributes)
{
    return SetFileAttributesW(Wide(path), attributes);
}

BOOL CreateDirectoryA(LPCSTR path, LPSECURITY_ATTRIBUTES security)
{
    return CreateDirectoryW(Wide(path), security);
}

BOOL DeleteFileA(LPCSTR path)
{
    return DeleteFileW(Wide(path));
}

BOOL MoveFileA(LPCSTR from, LPCSTR to)
{
    return MoveFileW(Wide(from), Wide(to));
}

BOOL MoveFileExA(LPCSTR from, LPCSTR to, DWORD flags)
{
    return MoveFileExW(Wide(from), Wide(to), flags);
}

BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists)
{
    return CopyFileW(Wide(from), Wide(to), failIfExists);
}

DWORD GetShortPathNameA(LPCSTR path, LPSTR buffer, DWORD size)
{
    if (GetShortPathNameW(Wide(path), nullptr, 0) == 0)
        return 0;
    const std::size_t length = std::strlen(path); // the short form is the path itself
    if (!buffer || size <= length)
        return static_cast<DWORD>(length + 1);
    std::memcpy(buffer, path, length + 1);
    return static_cast<DWORD>(length);
}

HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data)
{
    WIN32_FIND_DATAW found;
    const HANDLE find = FindFirstFileW(Wide(pattern), &found);
    if (find != INVALID_HANDLE_VALUE)
        CopyFound(found, *data);
    return find;
}

BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data)
{
    WIN32_FIND_DATAW found;
    if (!FindNextFileW(find, &found))
        return FALSE;
    CopyFound(found, *data);
    return TRUE;
}
