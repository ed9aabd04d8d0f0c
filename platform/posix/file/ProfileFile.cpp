#include "platform/posix/file/ProfileFile.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/file/Path.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

// A bare name is a file of the system folder.
std::string HostPath(std::u16string_view path)
{
    if (path.find_first_of(u"\\/:") != std::u16string_view::npos)
        return HostPathFromWindows(path);
    const std::string folder = MachineFolder("drives") + "/c/Windows";
    mkdir(folder.c_str(), 0755);
    return HostPathFromWindows(u"C:\\Windows\\" + std::u16string(path));
}

// The file that a link leads to, so that the link is not replaced by a file.
std::string Resolved(const std::string& path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return path;
    char* const real = realpath(path.c_str(), nullptr);
    const std::string result = real ? real : path;
    std::free(real);
    return result;
}

// A profile is read whole for every question; what is larger is no profile.
constexpr std::size_t kMostBytes = std::size_t{16} << 20;

// The contents of a regular file; false with errno set.
bool ReadAll(int file, std::string& bytes)
{
    struct stat status;
    if (fstat(file, &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode)) { // a pipe or a device would never end
        errno = EACCES;
        return false;
    }
    char buffer[16384];
    while (bytes.size() <= kMostBytes) {
        const ssize_t got = read(file, buffer, sizeof buffer);
        if (got == 0)
            return true;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        bytes.append(buffer, static_cast<std::size_t>(got));
    }
    errno = ENOMEM;
    return false;
}

bool WriteAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t put = write(file, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

// Any account that can read the folder can hold its lock for ever, so the wait has an end. Writers hold
// it for a millisecond.
bool LockFolder(int folder)
{
    constexpr int kTries = 50'000;
    for (int i = 0; i < kTries; ++i) {
        if (flock(folder, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        const timespec pause{0, 200'000};
        nanosleep(&pause, nullptr);
    }
    errno = EBUSY;
    return false;
}

// The new text goes to a file of a fixed name beside the old one, which the lock makes ours: what a
// killed writer left there goes first, and what another account put there is not written through.
bool Replace(const std::string& path, std::string_view bytes, const struct stat* old)
{
    const std::size_t slash = path.rfind('/') + 1;
    const std::string scratch = path.substr(0, slash) + '.' + path.substr(slash) + ".new";
    unlink(scratch.c_str());
    const Fd file(open(scratch.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!file)
        return false;
    if (old) {
        // Another account's file keeps its owner when that may be done at all.
        [[maybe_unused]] const int owner = fchown(file.Get(), old->st_uid, old->st_gid);
        fchmod(file.Get(), old->st_mode & 07777);
    }
    if (WriteAll(file.Get(), bytes) && rename(scratch.c_str(), path.c_str()) == 0)
        return true;
    const ErrnoKeeper keeper;
    unlink(scratch.c_str());
    return false;
}

} // namespace

ProfileText ReadProfile(std::u16string_view path)
{
    std::string bytes;
    const std::string host = HostPath(path);
    if (host.empty())
        return ProfileText({});
    const Fd file(open(host.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || !ReadAll(file.Get(), bytes)) {
        SetLastErrorFromErrno();
        return ProfileText({});
    }
    SetLastError(ERROR_SUCCESS);
    return ProfileText(bytes);
}

bool EditProfile(std::u16string_view path, const std::function<bool(ProfileText&)>& edit)
{
    const std::string named = HostPath(path);
    if (named.empty())
        return false;
    const std::string host = Resolved(named);
    const std::size_t slash = host.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : host.substr(0, slash + 1);
    const Fd lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock) {
        SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
        return false;
    }
    if (!LockFolder(lock.Get())) {
        SetLastError(errno == EBUSY ? ERROR_SHARING_VIOLATION : ErrorFromErrno(errno));
        return false;
    }

    std::string bytes;
    struct stat status {
    };
    const Fd old(open(host.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!old ? errno != ENOENT : fstat(old.Get(), &status) != 0 || !ReadAll(old.Get(), bytes)) {
        SetLastErrorFromErrno();
        return false;
    }
    if (old && (status.st_mode & S_IWUSR) == 0) { // the read-only attribute, which holds for root too
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    ProfileText text(bytes);
    if (!edit(text))
        return true;
    if (!Replace(host, text.Bytes(), old ? &status : nullptr)) {
        SetLastErrorFromErrno();
        return false;
    }
    return true;
}

} // namespace vlt::posix
