#include "suite/ArdScan/HostFile.h"

#include "platform/posix/core/Fd.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace vlt::scan
{
namespace
{

FileTime TimeOf(const timespec& time)
{
    return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)};
}

std::string SelfPath(int file)
{
    return "/proc/self/fd/" + std::to_string(file);
}

posix::Fd OpenFolder(const HostPath& path)
{
    return posix::Fd(open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// Attributes that cannot be read are left out: they are a convenience, and the content matters more.
std::vector<ExtendedAttribute> ReadExtended(int file)
{
    std::vector<ExtendedAttribute> extended;
    std::string names(65536, '\0'), value(65536, '\0'); // the kernel's own limits
    const ssize_t length = flistxattr(file, names.data(), names.size());
    for (std::size_t at = 0; length > 0 && at < static_cast<std::size_t>(length);) {
        const std::string name = names.c_str() + at;
        at += name.size() + 1;
        const ssize_t size = fgetxattr(file, name.c_str(), value.data(), value.size());
        if (size >= 0)
            extended.push_back({name, value.substr(0, static_cast<std::size_t>(size))});
    }
    return extended;
}

bool LeadsTo(int folder, const HostPath& path, const struct stat& file)
{
    struct stat named {
    };
    return fstatat(folder, path.filename().c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && named.st_dev == file.st_dev &&
           named.st_ino == file.st_ino;
}

} // namespace

void CHostFile::Close()
{
    if (m_file >= 0 && !m_borrowed)
        close(m_file);
    m_file = -1;
}

OpenResult CHostFile::Open(const HostPath& path)
{
    // Opening a device or a pipe has effects of its own: see what it is before opening it for reading.
    const posix::Fd place(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!place)
        return errno == ENOENT || errno == ENOTDIR ? OpenResult::Gone : OpenResult::Failed;
    struct stat info {
    };
    if (fstat(place.Get(), &info) != 0)
        return OpenResult::Failed;
    if (!S_ISREG(info.st_mode))
        return OpenResult::NotRegular;
    const std::string self = SelfPath(place.Get());
    int file = open(self.c_str(), O_RDONLY | O_NONBLOCK | O_NOATIME | O_CLOEXEC);
    if (file < 0 && errno == EPERM)
        file = open(self.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); // another's file
    if (file < 0 || !Borrow(file))
        return OpenResult::Failed;
    m_borrowed = false;
    return OpenResult::Opened;
}

bool CHostFile::Borrow(int file)
{
    struct stat info {
    };
    if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    m_file = file;
    m_borrowed = true;
    m_size = static_cast<std::uint64_t>(info.st_size);
    m_written = TimeOf(info.st_mtim);
    m_changed = TimeOf(info.st_ctim);
    return true;
}

std::ptrdiff_t CHostFile::Read(std::span<std::uint8_t> buffer)
{
    ssize_t count;
    do
        count = read(m_file, buffer.data(), buffer.size());
    while (count < 0 && errno == EINTR);
    return count;
}

std::ptrdiff_t CHostFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    ssize_t count;
    do
        count = pread(m_file, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    return count;
}

std::optional<FileId> CHostFile::Id() const
{
    struct stat info {
    };
    if (fstat(m_file, &info) != 0)
        return std::nullopt;
    return FileId{info.st_dev, info.st_ino};
}

std::optional<FileFacts> CHostFile::Facts() const
{
    struct stat info {
    };
    if (fstat(m_file, &info) != 0)
        return std::nullopt;
    FileFacts facts;
    facts.attributes = (info.st_mode & 0222) == 0 ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
    facts.accessed = TimeOf(info.st_atim);
    facts.modified = TimeOf(info.st_mtim);
    facts.hasOwner = true;
    facts.mode = info.st_mode & 07777;
    facts.owner = info.st_uid;
    facts.group = info.st_gid;
    facts.extended = ReadExtended(m_file);
    return facts;
}

bool CHostFile::IsUnchanged() const
{
    struct stat info {
    };
    return fstat(m_file, &info) == 0 && static_cast<std::uint64_t>(info.st_size) == m_size &&
           TimeOf(info.st_mtim) == m_written && TimeOf(info.st_ctim) == m_changed;
}

bool CHostFile::IsDeleted() const
{
    struct stat info {
    };
    return fstat(m_file, &info) == 0 && info.st_nlink == 0;
}

bool CHostFile::IsTrusted() const
{
    struct stat info {
    };
    return fstat(m_file, &info) == 0 && (info.st_uid == 0 || info.st_uid == geteuid()) &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool CHostFile::IsNamed(const HostPath& path) const
{
    struct stat own {
    };
    const posix::Fd folder = OpenFolder(path);
    return folder && fstat(m_file, &own) == 0 && LeadsTo(folder.Get(), path, own);
}

bool CHostFile::IsHeld(const HostPath&) const
{
    return false;
}

bool CHostFile::Remove(const HostPath& path) const
{
    struct stat own {
    };
    if (fstat(m_file, &own) != 0)
        return false;
    if (own.st_nlink == 0)
        return true;
    const posix::Fd folder = OpenFolder(path);
    return folder && LeadsTo(folder.Get(), path, own) && unlinkat(folder.Get(), path.filename().c_str(), 0) == 0;
}

bool CHostFile::Link(const HostPath& path) const
{
    const posix::Fd folder = OpenFolder(path);
    const std::string self = SelfPath(m_file);
    return folder && linkat(AT_FDCWD, self.c_str(), folder.Get(), path.filename().c_str(), AT_SYMLINK_FOLLOW) == 0;
}

} // namespace vlt::scan
