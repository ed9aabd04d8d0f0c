#include "platform/posix/core/Error.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/win32/file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

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
    // A buffer outside the address space, and the largest size the file system can hold.
    return Fail(errno == EFAULT ? ERROR_NOACCESS : errno == EFBIG ? ERROR_DISK_FULL : ErrorFromErrno(errno));
}

// A record that did not fit whole at the end of the file is taken back: half a line or half a
// record would be found by the next reader.
bool TakeBack(int fd, off_t sizeBefore, DWORD done) noexcept
{
    const off_t end = lseek(fd, 0, SEEK_CUR);
    const off_t start = end - static_cast<off_t>(done);
    struct stat now;
    // Not when others have appended meanwhile.
    if (start < sizeBefore || fstat(fd, &now) != 0 || now.st_size != end)
        return false;
    const bool appends = (fcntl(fd, F_GETFL) & O_APPEND) != 0;
    return ftruncate(fd, appends ? start : sizeBefore) == 0 && lseek(fd, start, SEEK_SET) == start;
}

} // namespace

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, void* overlapped)
{
    if (read)
        *read = 0;
    if (overlapped)
        return Fail(ERROR_NOT_SUPPORTED);
    const auto object = Pin<FileObject>(file);
    if (!object)
        return FALSE;
    if (!object->MayRead())
        return Fail(ERROR_ACCESS_DENIED);
    DWORD done = 0;
    while (done < size) {
        const ssize_t n = ::read(object->Fd(), static_cast<char*>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return FailFromErrno();
        if (n == 0)
            break;
        done += static_cast<DWORD>(n);
        if (read)
            *read = done;
    }
    return TRUE;
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, void* overlapped)
{
    if (written)
        *written = 0;
    if (overlapped)
        return Fail(ERROR_NOT_SUPPORTED);
    const auto object = Pin<FileObject>(file);
    if (!object)
        return FALSE;
    if (!object->MayWrite())
        return Fail(ERROR_ACCESS_DENIED);
    struct stat before;
    if (fstat(object->Fd(), &before) != 0)
        return FailFromErrno();
    DWORD done = 0;
    while (done < size) {
        const ssize_t n = ::write(object->Fd(), static_cast<const char*>(buffer) + done, size - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            FailFromErrno();
            if (done > 0 && TakeBack(object->Fd(), before.st_size, done))
                done = 0;
            if (written)
                *written = done;
            return FALSE;
        }
        done += static_cast<DWORD>(n);
    }
    if (written)
        *written = done;
    return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distanceHigh, DWORD method)
{
    const auto object = Pin<FileObject>(file);
    if (!object)
        return INVALID_SET_FILE_POINTER;
    if (method > FILE_END) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    const LONGLONG offset =
        distanceHigh ? (LONGLONG{*distanceHigh} << 32) | static_cast<DWORD>(distance) : LONGLONG{distance};
    const off_t before = lseek(object->Fd(), 0, SEEK_CUR);
    const off_t position = lseek(object->Fd(), offset,
                                 method == FILE_BEGIN     ? SEEK_SET
                                 : method == FILE_CURRENT ? SEEK_CUR
                                                          : SEEK_END);
    if (position < 0) {
        SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ErrorFromErrno(errno));
        return INVALID_SET_FILE_POINTER;
    }
    if (!distanceHigh && position > 0xFFFFFFFFll) {
        lseek(object->Fd(), before, SEEK_SET);
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    if (distanceHigh)
        *distanceHigh = static_cast<LONG>(position >> 32);
    const auto low = static_cast<DWORD>(position & 0xFFFFFFFFll);
    if (low == INVALID_SET_FILE_POINTER)
        SetLastError(ERROR_SUCCESS); // tells this position from a failure
    return low;
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size)
{
    const auto object = Pin<FileObject>(file);
    if (!object)
        return FALSE;
    struct stat status;
    if (fstat(object->Fd(), &status) != 0)
        return FailFromErrno();
    size->QuadPart = status.st_size;
    return TRUE;
}

BOOL FlushFileBuffers(HANDLE file)
{
    const auto object = Pin<FileObject>(file);
    if (!object)
        return FALSE;
    if (!object->MayWrite())
        return Fail(ERROR_ACCESS_DENIED);
    // EINVAL: a file system that has nothing to synchronise.
    if (fsync(object->Fd()) != 0 && errno != EINVAL)
        return FailFromErrno();
    return TRUE;
}
