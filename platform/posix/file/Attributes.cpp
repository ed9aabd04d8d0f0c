#include "platform/posix/core/Error.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/win32/file.h"

#include <cerrno>
#include <sys/stat.h>

namespace vlt::posix
{

DWORD AttributesOf(const struct stat& status) noexcept
{
    if (S_ISDIR(status.st_mode))
        return FILE_ATTRIBUTE_DIRECTORY;
    return FILE_ATTRIBUTE_ARCHIVE | (IsReadOnly(status) ? FILE_ATTRIBUTE_READONLY : 0);
}

std::optional<Entry> FindEntry(LPCWSTR text, std::size_t limit)
{
    auto path = ParsePath(text ? std::u16string_view(text) : std::u16string_view(), limit);
    if (!path)
        return std::nullopt;
    FoundPath found = FindPath(*path);
    if (!found.exists) {
        SetMissingError(*path, found);
        return std::nullopt;
    }
    Entry entry{*std::move(path), std::move(found.host), found.status, S_ISLNK(found.status.st_mode), 0};
    struct stat target;
    if (entry.isLink && stat(entry.host.c_str(), &target) == 0)
        entry.status = target; // a link that leads nowhere stands for itself
    entry.attributes = AttributesOf(entry.status) | (entry.isLink ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
    return entry;
}

} // namespace vlt::posix

using namespace vlt::posix;

DWORD GetFileAttributesW(LPCWSTR path)
{
    const auto entry = FindEntry(path);
    return entry ? entry->attributes : INVALID_FILE_ATTRIBUTES;
}

BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes)
{
    constexpr DWORD known = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                            FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL |
                            FILE_ATTRIBUTE_TEMPORARY;
    const auto entry = FindEntry(path);
    if (!entry)
        return FALSE;
    if ((attributes & ~known) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    // A folder's attribute protects nothing within it, which the host's write permission would.
    if (S_ISDIR(entry->status.st_mode))
        return TRUE;
    constexpr mode_t writers = S_IWUSR | S_IWGRP | S_IWOTH;
    const mode_t old = entry->status.st_mode & 07777;
    mode_t mode = old;
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
        mode &= ~writers;
    else
        mode |= S_IWUSR;
    if (mode == old || chmod(entry->host.c_str(), mode) == 0)
        return TRUE;
    SetLastErrorFromErrno();
    return FALSE;
}
