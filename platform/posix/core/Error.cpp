#include "platform/posix/core/Error.h"

#include <cerrno>

namespace
{
// initial-exec: read in every call of the subset, and the library is loaded at program start.
__attribute__((tls_model("initial-exec"))) thread_local DWORD t_lastError = 0;
} // namespace

DWORD GetLastError()
{
    return t_lastError;
}
void SetLastError(DWORD code)
{
    t_lastError = code;
}

namespace vlt::posix
{

DWORD ErrorFromErrno(int error) noexcept
{
    switch (error) {
    case 0:
        return ERROR_SUCCESS;
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
        return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EISDIR:
    case ETXTBSY:
        return ERROR_ACCESS_DENIED;
    case EROFS:
        return ERROR_WRITE_PROTECT;
    case EBADF:
        return ERROR_INVALID_HANDLE;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case ENOSPC:
    case EDQUOT:
        return ERROR_DISK_FULL;
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case ENOTEMPTY:
        return ERROR_DIR_NOT_EMPTY;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EINVAL:
        return ERROR_INVALID_PARAMETER;
    case EBUSY:
        return ERROR_BUSY;
    case ENOEXEC:
        return ERROR_BAD_EXE_FORMAT;
    case ENOTSUP:
        return ERROR_NOT_SUPPORTED;
    case EIO:
        return ERROR_IO_DEVICE;
    default:
        return ERROR_GEN_FAILURE;
    }
}

DWORD SetLastErrorFromErrno() noexcept
{
    const DWORD code = ErrorFromErrno(errno);
    SetLastError(code);
    return code;
}

ErrnoKeeper::ErrnoKeeper() noexcept : m_saved(errno) {}
ErrnoKeeper::~ErrnoKeeper()
{
    errno = m_saved;
}

} // namespace vlt::posix
