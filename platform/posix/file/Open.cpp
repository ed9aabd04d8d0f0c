#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/file/ShareLock.h"
#include "platform/posix/win32/file.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

constexpr DWORD KnownAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                  FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY;
constexpr DWORD AllShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

DWORD CheckRequest(const OpenRequest& request) noexcept
{
    if ((request.access & ~(GENERIC_READ | GENERIC_WRITE | DELETE)) != 0 || request.access == 0 ||
        (request.attributes & ~KnownAttributes) != 0)
        return ERROR_NOT_SUPPORTED;
    if ((request.share & ~AllShares) != 0 || request.disposition < CREATE_NEW ||
        request.disposition > TRUNCATE_EXISTING)
        return ERROR_INVALID_PARAMETER;
    if (request.disposition == TRUNCATE_EXISTING && (request.access & GENERIC_WRITE) == 0)
        return ERROR_INVALID_PARAMETER;
    return 0;
}

bool Truncates(const OpenRequest& request) noexcept
{
    return request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
}

// Share locks need a descriptor that may read. O_NONBLOCK: a pipe of that name must not hold us up.
int OpenFlags(const OpenRequest& request) noexcept
{
    const bool writes = (request.access & GENERIC_WRITE) != 0 || Truncates(request);
    return (writes ? O_RDWR : O_RDONLY) | (request.append ? O_APPEND : 0) | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
}

enum class Step { Opened, Missing, Again, Failed };

Step FailWith(DWORD code) noexcept
{
    SetLastError(code);
    return Step::Failed;
}

Step TakeShares(const Fd& descriptor, DWORD access, DWORD share)
{
    switch (AcquireShareLocks(descriptor.Get(), access, share)) {
    case ShareResult::Conflict:
        return FailWith(ERROR_SHARING_VIOLATION);
    case ShareResult::Deleted:
        return Step::Again;
    case ShareResult::Granted:
        break;
    }
    return Step::Opened;
}

Step OpenExisting(const std::string& host, const OpenRequest& request, SharedDescriptor& result)
{
    Fd descriptor(open(host.c_str(), OpenFlags(request)));
    if (!descriptor) {
        if (errno == ENOENT || errno == ENOTDIR)
            return Step::Missing;
        // ENXIO: a pipe without a reader or a socket. EROFS: opened for writing.
        return FailWith(errno == ENXIO ? ERROR_ACCESS_DENIED : ErrorFromErrno(errno));
    }
    struct stat status;
    if (fstat(descriptor.Get(), &status) != 0)
        return FailWith(ErrorFromErrno(errno));
    if (request.disposition == CREATE_NEW)
        return FailWith(ERROR_FILE_EXISTS);
    const bool changes = (request.access & (GENERIC_WRITE | DELETE)) != 0 || Truncates(request);
    if (!S_ISREG(status.st_mode) || (changes && IsReadOnly(status)))
        return FailWith(ERROR_ACCESS_DENIED);
    const DWORD access = request.access | (Truncates(request) ? GENERIC_WRITE : 0);
    if (const Step step = TakeShares(descriptor, access, request.share); step != Step::Opened)
        return step;
    result = SharedDescriptor(std::move(descriptor));
    if (Truncates(request) && ftruncate(result.Get(), 0) != 0)
        return FailWith(ErrorFromErrno(errno));
    return Step::Opened;
}

Step CreateNew(const FullPath& path, const FoundPath& found, const OpenRequest& request, SharedDescriptor& result)
{
    if (!found.parentExists || !IsCreatable(path)) {
        SetMissingError(path, found);
        return Step::Failed;
    }
    if (path.trailingSlash)
        return FailWith(ERROR_INVALID_NAME);
    const mode_t mode = (request.attributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444 : 0666;
    const int flags = OpenFlags(request) & ~O_ACCMODE;
    Fd descriptor(open(found.host.c_str(), flags | O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode));
    if (!descriptor) {
        if (errno == EEXIST) // another's file, or a link that leads nowhere
            return access(found.host.c_str(), F_OK) == 0 ? Step::Again : FailWith(ERROR_ACCESS_DENIED);
        return FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
    }
    if (const Step step = TakeShares(descriptor, request.access, request.share); step != Step::Opened)
        return step;
    result = SharedDescriptor(std::move(descriptor));
    return Step::Opened;
}

void SetOpenedError(DWORD disposition, bool existed) noexcept
{
    if (disposition == OPEN_ALWAYS || disposition == CREATE_ALWAYS)
        SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
}

} // namespace

SharedDescriptor::~SharedDescriptor()
{
    if (m_fd) {
        const ErrnoKeeper keeper;
        ReleaseShareLocks(m_fd.Get());
    }
}

SharedDescriptor OpenShared(const FullPath& path, const OpenRequest& request)
{
    SharedDescriptor result;
    if (const DWORD code = CheckRequest(request)) {
        SetLastError(code);
        return result;
    }
    const bool mayCreate = request.disposition != OPEN_EXISTING && request.disposition != TRUNCATE_EXISTING;
    for (int attempt = 0; attempt < 100; ++attempt) {
        // The exact name costs one call; only when it is missing are the folders searched.
        FoundPath found;
        found.host = path.ExactHostPath();
        Step step = OpenExisting(found.host, request, result);
        if (step == Step::Missing) {
            const std::string exact = std::move(found.host);
            found = FindPath(path);
            if (found.exists && found.host != exact)
                step = OpenExisting(found.host, request, result);
        }
        if (step == Step::Missing && mayCreate) {
            step = CreateNew(path, found, request, result);
            if (step == Step::Opened) {
                SetOpenedError(request.disposition, false);
                return result;
            }
        } else if (step == Step::Missing) {
            SetMissingError(path, found);
            return {};
        } else if (step == Step::Opened) {
            SetOpenedError(request.disposition, true);
            return result;
        }
        if (step == Step::Failed)
            return {};
    }
    SetLastError(ERROR_SHARING_VIOLATION);
    return {};
}

} // namespace vlt::posix

using namespace vlt::posix;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile)
{
    if ((security && security->bInheritHandle) || templateFile) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    const auto full = ParsePath(path ? std::u16string_view(path) : std::u16string_view());
    if (!full)
        return INVALID_HANDLE_VALUE;
    // Alone it is the right to write at the end only; beside GENERIC_WRITE it adds nothing.
    const bool append = (access & (FILE_APPEND_DATA | GENERIC_WRITE)) == FILE_APPEND_DATA;
    if ((access & FILE_APPEND_DATA) != 0)
        access = (access & ~FILE_APPEND_DATA) | GENERIC_WRITE;
    SharedDescriptor descriptor = OpenShared(*full, {access, share, disposition, attributes, append});
    if (!descriptor)
        return INVALID_HANDLE_VALUE;
    const HANDLE handle = InsertHandle(std::make_unique<FileObject>(std::move(descriptor), access));
    return handle ? handle : INVALID_HANDLE_VALUE;
}

HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile)
{
    const std::u16string wide = Utf16FromUtf8(path ? path : "");
    return CreateFileW(wide.c_str(), access, share, security, disposition, attributes, templateFile);
}
