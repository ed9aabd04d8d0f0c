#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/file/Wildcard.h"
#include "platform/posix/win32/file.h"
#include "platform/posix/win32/system.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <vector>

namespace vlt::posix
{
namespace
{

// The names are taken when the search begins and sorted as Windows sorts them; an entry that has gone
// when its turn comes is left out. The open folder keeps meaning the same one when it is renamed.
class FindObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Find;

    FindObject(Fd folder, std::vector<std::string> names) noexcept
        : Object(kKind), m_folder(std::move(folder)), m_names(std::move(names))
    {
    }

    bool Next(WIN32_FIND_DATAW& data)
    {
        const std::lock_guard guard(m_lock);
        while (m_next < m_names.size()) {
            if (Fill(m_names[m_next++], data))
                return true;
        }
        return false;
    }

private:
    bool Fill(const std::string& name, WIN32_FIND_DATAW& data) const;

    const Fd m_folder;
    const std::vector<std::string> m_names;
    std::mutex m_lock; // of m_next: a find handle may be used by several threads
    std::size_t m_next = 0;
};

FILETIME FileTimeOf(const statx_timestamp& time)
{
    constexpr std::uint64_t kSecondsFrom1601 = 11644473600;
    const std::uint64_t ticks =
        (static_cast<std::uint64_t>(time.tv_sec) + kSecondsFrom1601) * 10'000'000 + time.tv_nsec / 100;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

bool FindObject::Fill(const std::string& name, WIN32_FIND_DATAW& data) const
{
    struct stat status;
    if (fstatat(m_folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    const bool link = S_ISLNK(status.st_mode);
    if (link)
        fstatat(m_folder.Get(), name.c_str(), &status, 0); // where it leads, if anywhere
    struct statx times = {};
    statx(m_folder.Get(), name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_ATIME | STATX_MTIME, &times);
    data = {};
    data.dwFileAttributes = AttributesOf(status) | (link ? FILE_ATTRIBUTE_REPARSE_POINT : 0);
    data.ftCreationTime = FileTimeOf((times.stx_mask & STATX_BTIME) != 0 ? times.stx_btime : times.stx_mtime);
    data.ftLastAccessTime = FileTimeOf(times.stx_atime);
    data.ftLastWriteTime = FileTimeOf(times.stx_mtime);
    if (!S_ISDIR(status.st_mode)) {
        data.nFileSizeHigh = static_cast<DWORD>(status.st_size >> 32);
        data.nFileSizeLow = static_cast<DWORD>(status.st_size & 0xFFFFFFFF);
    }
    // A name of 255 bytes has at most as many units.
    lstrcpynW(data.cFileName, WindowsName(name).c_str(), MAX_PATH);
    return true;
}

std::vector<std::string> MatchingNames(int folder, std::u16string_view pattern, bool isRoot)
{
    std::vector<std::pair<std::u16string, std::string>> found;
    const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* const entries = copy >= 0 ? fdopendir(copy) : nullptr;
    if (!entries)
        return {};
    const std::unique_ptr<DIR, int (*)(DIR*)> owner(entries, &closedir);
    const std::u16string compiled = CompilePattern(pattern);
    while (const dirent* entry = readdir(entries)) {
        const std::string_view name = entry->d_name;
        if (isRoot && (name == "." || name == ".."))
            continue;
        std::u16string folded = FoldCase(WindowsName(name));
        if (MatchesPattern(compiled, folded))
            found.emplace_back(std::move(folded), name);
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (auto& entry : found)
        names.push_back(std::move(entry.second));
    return names;
}

} // namespace
} // namespace vlt::posix

using namespace vlt::posix;

HANDLE FindFirstFileW(LPCWSTR text, LPWIN32_FIND_DATAW data)
{
    auto path = ParsePath(text ? std::u16string_view(text) : std::u16string_view());
    if (!path || path->names.empty() || path->trailingSlash) {
        if (path)
            SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const std::u16string pattern = std::move(path->names.back());
    path->names.pop_back();
    Fd folder(open(FindPath(*path).host.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        SetLastError(errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const bool isRoot = path->names.empty();
    std::vector<std::string> names = MatchingNames(folder.Get(), pattern, isRoot);
    auto object = std::make_unique<FindObject>(std::move(folder), std::move(names));
    if (!object->Next(*data)) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = InsertHandle(std::move(object));
    return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data)
{
    const auto object = Pin<FindObject>(find);
    if (!object)
        return FALSE;
    if (object->Next(*data))
        return TRUE;
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
}

BOOL FindClose(HANDLE find)
{
    return CloseHandleOfKind(find, MaskOf(ObjectKind::Find));
}
