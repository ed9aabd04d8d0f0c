#include "platform/posix/file/ProfileFile.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/file/Path.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

class Descriptor
{
public:
    explicit Descriptor(int file) noexcept : m_file(file) {}
    ~Descriptor()
    {
        const ErrnoKeeper keeper;
        if (m_file >= 0)
            close(m_file);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const noexcept { return m_file; }
    explicit operator bool() const noexcept { return m_file >= 0; }

private:
    int m_file;
};

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
    char* const real = realpath(path.c_str(), nullptr);
    const std::string result = real ? real : path;
    std::free(real);
    return result;
}

bool ReadAll(int file, std::string& bytes)
{
    char buffer[16384];
    for (;;) {
        const ssize_t got = read(file, buffer, sizeof buffer);
        if (got == 0)
            return true;
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        bytes.append(buffer, static_cast<std::size_t>(got));
    }
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

// The new text goes to a file of a fixed name beside the old one, which the lock makes ours: what a
// killed writer left there is written over.
bool Replace(const std::string& path, std::string_view bytes, const struct stat* old)
{
    const std::size_t slash = path.rfind('/') + 1;
    const std::string scratch = path.substr(0, slash) + '.' + path.substr(slash) + ".new";
    const Descriptor file(open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
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
    const Descriptor file(open(HostPath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || !ReadAll(file.Get(), bytes)) {
        SetLastErrorFromErrno();
        return ProfileText({});
    }
    SetLastError(ERROR_SUCCESS);
    return ProfileText(bytes);
}

bool EditProfile(std::u16string_view path, const std::function<bool(ProfileText&)>& edit)
{
    const std::string host = Resolved(HostPath(path));
    const std::size_t slash = host.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : host.substr(0, slash + 1);
    const Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock) {
        SetLastError(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
        return false;
    }
    while (flock(lock.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }

    std::string bytes;
    struct stat status {
    };
    const Descriptor old(open(host.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
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
