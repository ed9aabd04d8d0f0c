#include "suite/ArdScan/NewFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace vlt::scan
{
namespace
{

timespec SpecOf(const FileTime& time)
{
    return {static_cast<time_t>(time.seconds), static_cast<long>(time.nanoseconds)};
}

bool WriteAll(int file, std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        offset += static_cast<std::uint64_t>(count);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

} // namespace

CNewFile::~CNewFile()
{
    Discard();
}

void CNewFile::Discard()
{
    if (!m_temporary.empty())
        unlinkat(m_folder.Get(), m_temporary.c_str(), 0);
    m_temporary.clear();
}

bool CNewFile::Create(const HostPath& destination)
{
    m_destination = destination;
    m_folder = posix::Fd(open(destination.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder || !destination.has_filename())
        return false;
    std::string name = "AS" + UniqueDigits() + ".part";
    m_file = posix::Fd(openat(m_folder.Get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (m_file)
        m_temporary = std::move(name);
    return static_cast<bool>(m_file);
}

bool CNewFile::Append(std::span<const std::uint8_t> bytes)
{
    if (!WriteAll(m_file.Get(), m_size, bytes))
        return false;
    m_size += bytes.size();
    return true;
}

bool CNewFile::WriteAt(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    return WriteAll(m_file.Get(), offset, bytes);
}

std::ptrdiff_t CNewFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    ssize_t count;
    do
        count = pread(m_file.Get(), buffer.data(), buffer.size(), static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    return count;
}

bool CNewFile::Give(const FileFacts& facts, bool trusted)
{
    const int file = m_file.Get();
    std::uint32_t mode = 0600;
    if (facts.hasOwner) {
        const bool owned = trusted && (fchown(file, facts.owner, facts.group) == 0);
        mode = facts.mode & (owned ? 07777u : 0777u);
    }
    // Attributes of the system, such as capabilities, lend rights; and a change of owner removes them, so they
    // come after it.
    for (const ExtendedAttribute& attribute : facts.extended)
        if (trusted || attribute.name.starts_with("user."))
            fsetxattr(file, attribute.name.c_str(), attribute.value.data(), attribute.value.size(), 0);
    if (facts.hasOwner ? fchmod(file, mode) != 0
                       : (facts.attributes & FILE_ATTRIBUTE_READONLY) != 0 && fchmod(file, 0400) != 0)
        return false;
    const timespec times[2] = {SpecOf(facts.accessed), SpecOf(facts.modified)};
    return futimens(file, times) == 0;
}

CNewFile::Result CNewFile::Commit(bool replace)
{
    const std::string name = m_destination.filename();
    const int folder = m_folder.Get();
    Result result = Result::Failed;
    if (fsync(m_file.Get()) == 0) {
        const unsigned flags = replace ? 0u : unsigned{RENAME_NOREPLACE};
        if (renameat2(folder, m_temporary.c_str(), folder, name.c_str(), flags) == 0) {
            m_temporary.clear();
            result = Result::Done;
        } else if (!replace && errno == EINVAL) { // not a file system that can do this
            result = linkat(folder, m_temporary.c_str(), folder, name.c_str(), 0) == 0 ? Result::Done : Result::Failed;
        }
        if (result == Result::Failed && !replace && errno == EEXIST)
            result = Result::Exists;
    }
    Discard();
    if (result == Result::Done)
        fsync(folder); // some file systems cannot; the name is there all the same
    return result;
}

bool CNewFile::CommitOver(CHostFile& original)
{
    const std::string self = "/proc/self/fd/" + std::to_string(m_folder.Get());
    return original.IsNamed(HostPath(self) / m_destination.filename()) && Commit(true) == Result::Done;
}

} // namespace vlt::scan
