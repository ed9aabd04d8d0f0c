#include "platform/posix/core/Error.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/win32/file.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace vlt::posix;

namespace
{

// A folder's path leaves room for a short file name below it.
constexpr std::size_t kFolderLimit = MAX_PATH - 12;

BOOL Fail(DWORD code) noexcept
{
    SetLastError(code);
    return FALSE;
}

// As ParsePath; too long a path has the error of the folder functions.
std::optional<FullPath> ParseFolder(LPCWSTR text, std::size_t limit)
{
    const std::u16string_view view = text ? std::u16string_view(text) : std::u16string_view();
    const bool literal = view.starts_with(u"\\\\?\\");
    auto path = ParsePath(view, 0);
    if (path && !literal && path->Text().size() >= limit) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return std::nullopt;
    }
    return path;
}

} // namespace

BOOL CreateDirectoryW(LPCWSTR text, LPSECURITY_ATTRIBUTES)
{
    const auto path = ParseFolder(text, kFolderLimit);
    if (!path)
        return FALSE;
    const FoundPath found = FindPath(*path);
    if (found.exists)
        return Fail(ERROR_ALREADY_EXISTS);
    if (!found.parentExists || !IsCreatable(*path)) {
        SetMissingError(*path, found);
        return FALSE;
    }
    if (mkdir(found.host.c_str(), 0777) == 0)
        return TRUE;
    return Fail(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
}

BOOL RemoveDirectoryW(LPCWSTR path)
{
    const auto entry = FindEntry(path);
    if (!entry)
        return FALSE;
    if (!entry->IsFolder())
        return Fail(ERROR_DIRECTORY);
    // A link to a folder goes, not the folder.
    if ((entry->isLink ? unlink(entry->host.c_str()) : rmdir(entry->host.c_str())) == 0)
        return TRUE;
    return Fail(errno == EEXIST ? ERROR_DIR_NOT_EMPTY : ErrorFromErrno(errno));
}

BOOL SetCurrentDirectoryW(LPCWSTR text)
{
    const auto path = ParseFolder(text, MAX_PATH - 1); // it is kept with a trailing slash
    if (!path)
        return FALSE;
    const FoundPath found = FindPath(*path);
    if (!found.exists) {
        SetMissingError(*path, found);
        return FALSE;
    }
    if (chdir(found.host.c_str()) == 0)
        return TRUE;
    return Fail(errno == ENOTDIR ? ERROR_DIRECTORY : ErrorFromErrno(errno));
}

DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer)
{
    return CopyPathText(CurrentPath().Text(), buffer, size);
}
