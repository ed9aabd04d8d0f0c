#include "platform/posix/registry/ValueStore.h"

#include "platform/posix/registry/KeyStore.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sched.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix::registry
{
namespace
{

constexpr int FileFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

// Lets the writer go on: it may have lost its processor in the middle of the copy.
bool WaitForWriter(int attempt) noexcept
{
    if (attempt < 100) {
        sched_yield();
        return true;
    }
    const timespec pause{0, 100'000};
    nanosleep(&pause, nullptr);
    return attempt < 300;
}

// Reads as much as the record says. With a long name that takes two steps: to the record, and on.
ValueState ReadLarge(int fd, std::size_t nameLength, ValueBuffer& buffer, ValueView& view, LSTATUS& status) noexcept
{
    for (std::uint64_t known = 0;;) {
        struct stat info {
        };
        if (fstat(fd, &info) != 0 || view.end > static_cast<std::uint64_t>(info.st_size) || view.end == known)
            return ValueState::Torn; // the size is read with the old data, or is nonsense
        known = view.end;
        const std::size_t size = static_cast<std::size_t>(known);
        buffer.large.reset(new (std::nothrow) std::byte[size]);
        if (!buffer.large) {
            status = ERROR_NOT_ENOUGH_MEMORY;
            return ValueState::Bad;
        }
        std::size_t done = 0;
        while (done < size) {
            const ssize_t got = pread(fd, buffer.large.get() + done, size - done, static_cast<off_t>(done));
            if (got <= 0)
                break;
            done += static_cast<std::size_t>(got);
        }
        const ValueState state = ParseValue({buffer.large.get(), done}, nameLength, view);
        if (state != ValueState::Short)
            return state;
    }
}

LSTATUS ReadOpenFile(int fd, std::size_t nameLength, ValueBuffer& buffer, ValueView& view) noexcept
{
    for (int attempt = 0;; ++attempt) {
        const ssize_t got = pread(fd, buffer.page, sizeof(buffer.page), 0);
        if (got < 0)
            return StatusFromErrno(errno);
        LSTATUS status = ERROR_BADDB;
        ValueState state = ParseValue({buffer.page, static_cast<std::size_t>(got)}, nameLength, view);
        if (state == ValueState::Short)
            state = ReadLarge(fd, nameLength, buffer, view, status);
        if (state == ValueState::Good)
            return ERROR_SUCCESS;
        if (state == ValueState::Bad || !WaitForWriter(attempt))
            return status;
    }
}

LSTATUS OpenValue(int folder, const char* file, int mode, Fd& fd) noexcept
{
    fd = Fd(openat(folder, file, mode | FileFlags));
    return fd ? ERROR_SUCCESS : StatusInKey(folder, errno);
}

bool WriteAll(int fd, iovec* parts, int count) noexcept
{
    while (count > 0) {
        const ssize_t done = writev(fd, parts, count);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0)
            return false;
        auto left = static_cast<std::size_t>(done);
        while (count > 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<std::byte*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
    return true;
}

// Writes a complete new file and gives it the value's name. With RENAME_NOREPLACE in flags, EEXIST
// when there is one already.
int PutNewFile(int folder, const char* file, WStringView name, DWORD type, std::span<const std::byte> data,
               unsigned flags) noexcept
{
    char unique[32];
    const Fd fd = MakeNewFile(unique);
    if (!fd)
        return errno;
    ValueFileHeader header = MakeHeader(name);
    ValueRecord record = MakeRecord(type, data);
    std::byte padding[8] = {};
    const std::size_t nameSize = name.size() * sizeof(WCHAR);
    iovec parts[] = {{&header, sizeof(header)},
                     {const_cast<WCHAR*>(name.data()), nameSize},
                     {padding, RecordOffset(name.size()) - sizeof(header) - nameSize},
                     {&record, sizeof(record)},
                     {const_cast<std::byte*>(data.data()), data.size()}};
    if (WriteAll(fd.Get(), parts, 5) && renameat2(NewFolder(), unique, folder, file, flags) == 0)
        return 0;
    const int error = errno;
    unlinkat(NewFolder(), unique, 0);
    return error;
}

bool WriteInPlace(int fd, std::size_t at, DWORD type, std::span<const std::byte> data) noexcept
{
    // Gathered here first: the host must find all bytes present, or the copy is made in parts.
    std::byte bytes[InPlaceLimit];
    const ValueRecord record = MakeRecord(type, data);
    std::memcpy(bytes, &record, sizeof(record));
    if (!data.empty())
        std::memcpy(bytes + sizeof(record), data.data(), data.size());
    const std::size_t size = sizeof(record) + data.size();
    ssize_t done = -1;
    do {
        done = pwrite(fd, bytes, size, static_cast<off_t>(at));
    } while (done < 0 && errno == EINTR);
    if (done >= 0 && done != static_cast<ssize_t>(size))
        errno = ENOSPC;
    return done == static_cast<ssize_t>(size);
}

// The name at the front of a file, if it stands for the file's name.
bool ReadName(int fd, const char* file, WString& name)
{
    alignas(8) std::byte front[RecordOffset(MaxValueName)];
    const ssize_t got = fd >= 0 ? pread(fd, front, sizeof(front), 0) : -1;
    WStringView stored;
    if (got <= 0 || !ParseName({front, static_cast<std::size_t>(got)}, stored))
        return false;
    FileName expected;
    MakeFileName('v', stored, expected);
    name = stored;
    return std::strcmp(expected.text, file) == 0;
}

// Large values are replaced as a whole; the case of the first name is kept.
int ReplaceFile(int fd, int folder, const char* file, WStringView name, DWORD type, std::span<const std::byte> data)
{
    WString stored;
    return PutNewFile(folder, file, ReadName(fd, file, stored) ? stored : name, type, data, 0);
}

} // namespace

LSTATUS ReadValue(int folder, WStringView name, ValueBuffer& buffer, ValueView& view) noexcept
{
    FileName file;
    MakeFileName('v', name, file);
    Fd fd;
    const LSTATUS status = OpenValue(folder, file.text, O_RDONLY, fd);
    return status == ERROR_SUCCESS ? ReadOpenFile(fd.Get(), name.size(), buffer, view) : status;
}

LSTATUS ReadValueFile(int folder, const char* file, ValueBuffer& buffer, ValueView& view, WString& name)
{
    Fd fd;
    const LSTATUS status = OpenValue(folder, file, O_RDONLY, fd);
    if (status != ERROR_SUCCESS)
        return status;
    if (!ReadName(fd.Get(), file, name))
        name = NameOfFile(file);
    return ReadOpenFile(fd.Get(), name.size(), buffer, view);
}

LSTATUS WriteValue(int folder, WStringView name, DWORD type, std::span<const std::byte> data) noexcept
{
    FileName file;
    MakeFileName('v', name, file);
    const std::size_t at = RecordOffset(name.size());
    const bool fitsPage = at + sizeof(ValueRecord) + data.size() <= InPlaceLimit;
    // Another process may make or delete the value between two of these steps; one of them has then
    // got on.
    for (;;) {
        Fd fd;
        const LSTATUS status = OpenValue(folder, file.text, fitsPage ? O_WRONLY : O_RDWR, fd);
        if (status == ERROR_FILE_NOT_FOUND) {
            const int error = PutNewFile(folder, file.text, name, type, data, RENAME_NOREPLACE);
            if (error == EEXIST)
                continue;
            return error == 0 ? ERROR_SUCCESS : StatusInKey(folder, error);
        }
        if (status != ERROR_SUCCESS && status != ERROR_BADDB)
            return status;
        if (fd && fitsPage)
            return WriteInPlace(fd.Get(), at, type, data) ? ERROR_SUCCESS : StatusFromErrno(errno);
        const int error = ReplaceFile(fd.Get(), folder, file.text, name, type, data);
        return error == 0 ? ERROR_SUCCESS : StatusInKey(folder, error);
    }
}

LSTATUS RemoveValue(int folder, WStringView name) noexcept
{
    FileName file;
    MakeFileName('v', name, file);
    return unlinkat(folder, file.text, 0) == 0 ? ERROR_SUCCESS : StatusInKey(folder, errno);
}

} // namespace vlt::posix::registry
