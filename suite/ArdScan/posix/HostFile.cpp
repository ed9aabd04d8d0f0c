#include "suite/ArdScan/HostFile.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::scan
{

CHostFile::~CHostFile()
{
    if (m_file >= 0)
        close(m_file);
}

OpenResult CHostFile::Open(const HostPath& path)
{
    // Opening a device or a pipe has effects of its own: see what it is before opening it for reading.
    const int place = open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (place < 0)
        return errno == ENOENT || errno == ENOTDIR ? OpenResult::Gone : OpenResult::Failed;
    struct stat info {
    };
    const bool known = fstat(place, &info) == 0;
    if (known && S_ISREG(info.st_mode)) {
        const std::string self = "/proc/self/fd/" + std::to_string(place);
        m_file = open(self.c_str(), O_RDONLY | O_NONBLOCK | O_NOATIME | O_CLOEXEC);
        if (m_file < 0 && errno == EPERM)
            m_file = open(self.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); // another's file
    }
    close(place);
    if (!known)
        return OpenResult::Failed;
    if (!S_ISREG(info.st_mode))
        return OpenResult::NotRegular;
    m_size = static_cast<std::uint64_t>(info.st_size);
    return m_file >= 0 ? OpenResult::Opened : OpenResult::Failed;
}

std::ptrdiff_t CHostFile::Read(std::span<std::uint8_t> buffer)
{
    ssize_t count;
    do
        count = read(m_file, buffer.data(), buffer.size());
    while (count < 0 && errno == EINTR);
    return count;
}

} // namespace vlt::scan
