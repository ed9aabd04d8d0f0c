// Deleting, moving and copying.
#include "platform/posix/core/Error.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/file/PendingMoves.h"
#include "platform/posix/file/ShareLock.h"
#include "platform/posix/win32/file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace vlt::posix;

namespace
{

BOOL Fail(DWORD code) noexcept
{
    SetLastError(code);
    return FALSE;
}

BOOL FailFromErrno() noexcept
{
    SetLastErrorFromErrno();
    return FALSE;
}

BOOL Checked(bool succeeded) noexcept
{
    return succeeded ? TRUE : FailFromErrno();
}

// Runs a change of the file's name when no opener denies it, and holds new openers off meanwhile.
// A file that this account may not read, a link and anything that is no file cannot be asked.
// The change sets the last error when it fails.
BOOL ChangeName(const Entry& entry, const std::function<BOOL()>& change, bool removes = false)
{
    Fd fd;
    if (!entry.isLink && S_ISREG(entry.status.st_mode))
        fd = Fd(open(entry.host.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!fd)
        return change();
    OpenSerializer serializer(fd.Get());
    if (IsAccessDeniedByOthers(fd.Get(), DELETE))
        return Fail(ERROR_SHARING_VIOLATION);
    const BOOL changed = change();
    if (changed && removes)
        serializer.Forget();
    return changed;
}

// Where a move or a copy goes: the folder's names as found, the last name as given.
struct Target {
    FullPath path;
    FoundPath found;
    std::string host;
};

std::optional<Target> FindTarget(LPCWSTR text)
{
    auto path = ParsePath(text ? std::u16string_view(text) : std::u16string_view());
    if (!path)
        return std::nullopt;
    FoundPath found = FindNewPath(*path);
    if (!found.parentExists || (!found.exists && !IsCreatable(*path))) {
        SetMissingError(*path, found);
        return std::nullopt;
    }
    std::string host = found.host;
    if (!path->names.empty())
        host.replace(host.rfind('/') + 1, std::string::npos, HostName(path->names.back()));
    return Target{*std::move(path), std::move(found), std::move(host)};
}

// The contents and the write time; the permissions of the source, hence its read-only attribute.
bool CopyContents(int from, int to)
{
    struct stat status;
    if (fstat(from, &status) != 0)
        return false;
    for (;;) {
        const ssize_t n = sendfile(to, from, nullptr, std::size_t{1} << 24);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
    }
    const timespec times[] = {{0, UTIME_OMIT}, status.st_mtim};
    return futimens(to, times) == 0 && fchmod(to, status.st_mode & 0777) == 0;
}

BOOL Copy(const FullPath& from, const FullPath& to, bool failIfExists)
{
    const SharedDescriptor source =
        OpenShared(from, {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING, 0});
    if (!source)
        return FALSE;
    const SharedDescriptor target =
        OpenShared(to, {GENERIC_READ | GENERIC_WRITE, 0, failIfExists ? CREATE_NEW : CREATE_ALWAYS, 0});
    if (!target)
        return FALSE;
    if (CopyContents(source.Get(), target.Get()))
        return TRUE;
    // Half a copy is not left behind: it would be taken for the file.
    FailFromErrno();
    unlink(FindPath(to).host.c_str());
    return FALSE;
}

bool HaveSameContents(int a, int b)
{
    constexpr std::size_t kBlock = 64 * 1024;
    std::vector<char> blocks(2 * kBlock);
    for (off_t at = 0;;) {
        const ssize_t got = pread(a, blocks.data(), kBlock, at);
        const ssize_t other = pread(b, blocks.data() + kBlock, kBlock, at);
        if (got < 0 || got != other ||
            std::memcmp(blocks.data(), blocks.data() + kBlock, static_cast<std::size_t>(got)) != 0)
            return false;
        if (got == 0)
            return true;
        at += got;
    }
}

// The only other copy is deleted next.
bool IsSafe(const std::string& copy, const std::string& original)
{
    const Fd to(open(copy.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    const Fd from(open(original.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!to || !from || (fsync(to.Get()) != 0 && errno != EINVAL))
        return false;
    posix_fadvise(to.Get(), 0, 0, POSIX_FADV_DONTNEED); // what is compared comes from the disk again
    errno = EIO;
    return HaveSameContents(to.Get(), from.Get());
}

BOOL MoveAcrossFileSystems(const Entry& source, const Target& target, bool replace)
{
    if (source.IsFolder() || source.isLink)
        return Fail(source.isLink ? ERROR_NOT_SAME_DEVICE : ERROR_ACCESS_DENIED);
    if (!Copy(source.path, target.path, !replace)) {
        if (GetLastError() == ERROR_FILE_EXISTS)
            SetLastError(ERROR_ALREADY_EXISTS);
        return FALSE;
    }
    const std::string copy = FindPath(target.path).host;
    if (!IsSafe(copy, source.host) || unlink(source.host.c_str()) != 0) {
        FailFromErrno();
        unlink(copy.c_str()); // the file stays where it is, and there alone
        return FALSE;
    }
    return TRUE;
}

// File systems without a rename that spares the target get a look before it.
bool RenameToNew(const char* from, const char* to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return true;
    struct stat status;
    if (errno != EINVAL)
        return false;
    if (lstat(to, &status) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(from, to) == 0;
}

BOOL Replace(const Entry& source, const Target& target)
{
    struct stat old;
    if (lstat(target.found.host.c_str(), &old) == 0) {
        if (S_ISDIR(old.st_mode) || (S_ISREG(old.st_mode) && IsReadOnly(old)))
            return Fail(ERROR_ACCESS_DENIED);
        const Fd fd(open(target.found.host.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
        if (fd && IsAccessDeniedByOthers(fd.Get(), DELETE))
            return Fail(ERROR_ACCESS_DENIED);
    }
    return Checked(rename(source.host.c_str(), target.found.host.c_str()) == 0);
}

BOOL Move(LPCWSTR from, LPCWSTR to, DWORD flags)
{
    const auto source = FindEntry(from);
    if (!source)
        return FALSE;
    const auto target = FindTarget(to);
    if (!target)
        return FALSE;
    const bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    // The same file: a change of its case, or nothing at all.
    const bool same = target->found.exists && target->found.host == source->host;
    if (target->found.exists && !same && !replace)
        return Fail(ERROR_ALREADY_EXISTS);
    const BOOL moved = ChangeName(*source, [&] {
        if (replace && target->found.exists && !same)
            return Replace(*source, *target);
        return Checked((same && target->host == source->host) ||
                       RenameToNew(source->host.c_str(), target->host.c_str()));
    });
    if (!moved && GetLastError() == ERROR_NOT_SAME_DEVICE && (flags & MOVEFILE_COPY_ALLOWED) != 0)
        return MoveAcrossFileSystems(*source, *target, replace);
    return moved;
}

} // namespace

BOOL DeleteFileW(LPCWSTR path)
{
    const auto entry = FindEntry(path);
    if (!entry)
        return FALSE;
    const bool folder = entry->IsFolder() && !entry->isLink;
    const bool readOnly = S_ISREG(entry->status.st_mode) && !entry->isLink && IsReadOnly(entry->status);
    if (folder || readOnly || entry->path.trailingSlash)
        return Fail(ERROR_ACCESS_DENIED);
    return ChangeName(
        *entry, [&entry] { return Checked(unlink(entry->host.c_str()) == 0); }, true);
}

BOOL MoveFileW(LPCWSTR from, LPCWSTR to)
{
    return Move(from, to, MOVEFILE_COPY_ALLOWED);
}

BOOL MoveFileExW(LPCWSTR from, LPCWSTR to, DWORD flags)
{
    if ((flags & ~(MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED | MOVEFILE_DELAY_UNTIL_REBOOT)) != 0)
        return Fail(ERROR_NOT_SUPPORTED);
    if ((flags & MOVEFILE_DELAY_UNTIL_REBOOT) == 0)
        return Move(from, to, flags);
    if ((flags & MOVEFILE_COPY_ALLOWED) != 0)
        return Fail(ERROR_INVALID_PARAMETER);
    return AddPendingMove(from, to, (flags & MOVEFILE_REPLACE_EXISTING) != 0);
}

BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists)
{
    const auto source = ParsePath(from ? std::u16string_view(from) : std::u16string_view());
    if (!source)
        return FALSE;
    const auto target = ParsePath(to ? std::u16string_view(to) : std::u16string_view());
    return target ? Copy(*source, *target, failIfExists != FALSE) : FALSE;
}
