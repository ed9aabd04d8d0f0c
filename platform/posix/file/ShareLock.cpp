#include "platform/posix/file/ShareLock.h"

#include "platform/posix/win32/file.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

// Positions from FirstByte. Reading and writing are each beside the denial of deletion, and all denials of
// who reads and writes alone are one run with them.
enum Bit : unsigned {
    DeniesWrite = 1u << 0,
    Reads = 1u << 1,
    DeniesDelete = 1u << 2,
    Writes = 1u << 3,
    DeniesRead = 1u << 4,
    Deletes = 1u << 5,
};
constexpr unsigned BitCount = 6;
constexpr off_t FirstByte = std::numeric_limits<off_t>::max() - 64;

struct Bits {
    unsigned own;      // what the opener holds
    unsigned opposite; // what nobody else may hold
};

Bits BitsOf(DWORD access, DWORD share) noexcept
{
    Bits bits{0, 0};
    const auto add = [&](bool does, bool denies, Bit doing, Bit denying) {
        bits.own |= (does ? doing : 0u) | (denies ? denying : 0u);
        bits.opposite |= (does ? denying : 0u) | (denies ? doing : 0u);
    };
    add((access & GENERIC_READ) != 0, (share & FILE_SHARE_READ) == 0, Reads, DeniesRead);
    add((access & GENERIC_WRITE) != 0, (share & FILE_SHARE_WRITE) == 0, Writes, DeniesWrite);
    add((access & DELETE) != 0, (share & FILE_SHARE_DELETE) == 0, Deletes, DeniesDelete);
    return bits;
}

// Calls f(first byte, number of bytes) for each run of set bits until one returns false.
template <typename F>
bool ForEachRun(unsigned bits, F&& f) noexcept
{
    for (unsigned i = 0; i < BitCount;) {
        if ((bits & (1u << i)) == 0) {
            ++i;
            continue;
        }
        const unsigned first = i;
        while (i < BitCount && (bits & (1u << i)) != 0)
            ++i;
        if (!f(FirstByte + first, off_t{i - first}))
            return false;
    }
    return true;
}

struct flock Region(short type, off_t first, off_t length) noexcept
{
    struct flock region = {};
    region.l_type = type;
    region.l_whence = SEEK_SET;
    region.l_start = first;
    region.l_len = length;
    return region;
}

bool IsFree(int fd, off_t first, off_t length) noexcept
{
    struct flock region = Region(F_WRLCK, first, length);
    return fcntl(fd, F_OFD_GETLK, &region) != 0 || region.l_type == F_UNLCK;
}

bool IsHeldByOthers(int fd, unsigned bits) noexcept
{
    // Usually nobody else has the file open.
    return !IsFree(fd, FirstByte, BitCount) &&
           !ForEachRun(bits, [fd](off_t first, off_t length) { return IsFree(fd, first, length); });
}

} // namespace

OpenSerializer::OpenSerializer(int fd) noexcept : m_fd(fd), m_held(false)
{
    // Openers hold it for microseconds. A foreign program may hold its own flock on the file for
    // ever; then the opener goes on without.
    constexpr int Attempts = 100;
    for (int i = 0; i < Attempts; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_held = true;
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR)
            return;
        if (i < Attempts / 2) {
            sched_yield();
        } else {
            const timespec pause{0, 200'000};
            nanosleep(&pause, nullptr);
        }
    }
}

OpenSerializer::~OpenSerializer()
{
    if (m_held)
        flock(m_fd, LOCK_UN);
}

void ReleaseShareLocks(int fd) noexcept
{
    struct flock region = Region(F_UNLCK, FirstByte, BitCount);
    fcntl(fd, F_OFD_SETLK, &region);
}

ShareResult AcquireShareLocks(int fd, DWORD access, DWORD share) noexcept
{
    const Bits bits = BitsOf(access, share);
    const OpenSerializer serializer(fd);
    struct stat status;
    if (fstat(fd, &status) == 0 && status.st_nlink == 0)
        return ShareResult::Deleted;
    ForEachRun(bits.own, [fd](off_t first, off_t length) {
        struct flock region = Region(F_RDLCK, first, length);
        return fcntl(fd, F_OFD_SETLK, &region) == 0;
    });
    if (!IsHeldByOthers(fd, bits.opposite))
        return ShareResult::Granted;
    ReleaseShareLocks(fd);
    return ShareResult::Conflict;
}

bool IsAccessDeniedByOthers(int fd, DWORD access) noexcept
{
    return IsHeldByOthers(fd, BitsOf(access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE).opposite);
}

} // namespace vlt::posix
