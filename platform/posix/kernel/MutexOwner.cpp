#include "platform/posix/kernel/MutexOwner.h"

#include "platform/posix/win32/kernel.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

constexpr MutexOwner StartMask = (MutexOwner{1} << (OwnerProcessShift - OwnerStartShift)) - 1;

// The kernel's line about a process; empty when there is none.
bool ReadStatus(pid_t process, char (&line)[1024]) noexcept
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(process));
    const Fd file(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t size = file ? read(file.Get(), line, sizeof line - 1) : -1;
    line[size > 0 ? size : 0] = '\0';
    return size > 0;
}

// The 22nd field. The 2nd is the program's name in parentheses, which may hold anything.
MutexOwner StartOf(const char* line) noexcept
{
    const char* field = std::strrchr(line, ')');
    for (int number = 2; field && number < 22; ++number)
        field = std::strchr(field + 1, ' ');
    return field ? std::strtoull(field + 1, nullptr, 10) & StartMask : 0;
}

// Process and start time of this process, in place.
MutexOwner OwnProcess() noexcept
{
    static const MutexOwner own = [] {
        char line[1024];
        ReadStatus(getpid(), line);
        return (MutexOwner{static_cast<std::uint32_t>(getpid())} << OwnerProcessShift) |
               (StartOf(line) << OwnerStartShift);
    }();
    return own;
}

bool HasEnded(int descriptor) noexcept
{
    pollfd entry{descriptor, POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

} // namespace

MutexOwner SelfAsOwner() noexcept
{
    return OwnProcess() | GetCurrentThreadId();
}

Fd OpenOwnerProcess(MutexOwner owner, bool& ended) noexcept
{
    // The descriptor first: what is read then is of the process that it stands for, or of a later one.
    const pid_t process = OwnerProcess(owner);
    Fd descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    ended = descriptor ? HasEnded(descriptor.Get()) : errno == ESRCH || errno == EINVAL;
    // A system that hides other accounts' processes tells no start time: the id must do.
    char line[1024];
    if (descriptor && !ended && ReadStatus(process, line))
        ended = StartOf(line) != ((owner >> OwnerStartShift) & StartMask);
    return ended ? Fd() : std::move(descriptor);
}

} // namespace vlt::posix
