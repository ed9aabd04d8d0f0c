// An open file and how it is opened.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/posix/core/HandleTable.h"
#include "platform/posix/file/Path.h"

#include <sys/stat.h>
#include <utility>

namespace vlt::posix
{

// A descriptor whose share locks end with it, not with the last copy in a starting process.
class SharedDescriptor
{
public:
    SharedDescriptor() noexcept = default;
    explicit SharedDescriptor(Fd fd) noexcept : m_fd(std::move(fd)) {}
    SharedDescriptor(SharedDescriptor&&) noexcept = default;
    SharedDescriptor& operator=(SharedDescriptor&&) noexcept = default;
    ~SharedDescriptor();

    explicit operator bool() const noexcept { return static_cast<bool>(m_fd); }
    int Get() const noexcept { return m_fd.Get(); }

private:
    Fd m_fd;
};

struct OpenRequest {
    DWORD access = 0; // GENERIC_READ, GENERIC_WRITE, DELETE
    DWORD share = 0;
    DWORD disposition = 0;
    DWORD attributes = 0;
    bool append = false; // with GENERIC_WRITE: every write goes to the end, in one step
};

// Opens a regular file by the rules of CreateFileW. Empty with the last error set on failure; on
// success the last error is ERROR_ALREADY_EXISTS or 0 where the disposition says so.
SharedDescriptor OpenShared(const FullPath& path, const OpenRequest& request);

// The attributes a file shows; ReadOnly is the absence of the owner's write permission. HIDDEN and
// SYSTEM are accepted by SetFileAttributesW and not kept.
DWORD AttributesOf(const struct stat& status) noexcept;
// Something that exists. The status and the attributes of a link are those of what it leads to.
struct Entry {
    FullPath path;
    std::string host;
    struct stat status;
    bool isLink;
    DWORD attributes;

    bool IsFolder() const noexcept { return S_ISDIR(status.st_mode); }
};
// Nothing with the last error set when the path is none or leads to nothing.
std::optional<Entry> FindEntry(LPCWSTR path, std::size_t limit = MAX_PATH);

inline bool IsReadOnly(const struct stat& status) noexcept
{
    return (status.st_mode & S_IWUSR) == 0;
}

class FileObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::File;

    FileObject(SharedDescriptor descriptor, DWORD access) noexcept
        : Object(kKind), m_descriptor(std::move(descriptor)), m_access(access)
    {
    }

    int Fd() const noexcept { return m_descriptor.Get(); }
    bool MayRead() const noexcept { return (m_access & GENERIC_READ) != 0; }
    bool MayWrite() const noexcept { return (m_access & GENERIC_WRITE) != 0; }

private:
    const SharedDescriptor m_descriptor;
    const DWORD m_access;
};

} // namespace vlt::posix
