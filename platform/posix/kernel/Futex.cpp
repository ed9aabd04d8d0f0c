#include "platform/posix/kernel/Futex.h"

#include <cerrno>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

constexpr long NanosecondsPerSecond = 1'000'000'000;

timespec Now() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

bool LookAgain(long result) noexcept
{
    return result >= 0 || errno == EAGAIN || errno == EINTR;
}

} // namespace

Deadline::Deadline(DWORD milliseconds) noexcept : m_infinite(milliseconds == INFINITE)
{
    if (m_infinite)
        return;
    m_at = Now();
    m_at.tv_sec += milliseconds / 1000;
    m_at.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (m_at.tv_nsec >= NanosecondsPerSecond) {
        m_at.tv_nsec -= NanosecondsPerSecond;
        ++m_at.tv_sec;
    }
}

std::uint64_t MonotonicNow() noexcept
{
    const timespec now = Now();
    return static_cast<std::uint64_t>(now.tv_sec) * NanosecondsPerSecond + static_cast<std::uint64_t>(now.tv_nsec);
}

bool Deadline::LimitTo(std::uint64_t nanoseconds) noexcept
{
    const timespec limit{static_cast<time_t>(nanoseconds / NanosecondsPerSecond),
                         static_cast<long>(nanoseconds % NanosecondsPerSecond)};
    if (!m_infinite && (m_at.tv_sec < limit.tv_sec || (m_at.tv_sec == limit.tv_sec && m_at.tv_nsec <= limit.tv_nsec)))
        return false;
    m_infinite = false;
    m_at = limit;
    return true;
}

timespec Deadline::Remaining() const noexcept
{
    const timespec now = Now();
    timespec left{m_at.tv_sec - now.tv_sec, m_at.tv_nsec - now.tv_nsec};
    if (left.tv_nsec < 0) {
        left.tv_nsec += NanosecondsPerSecond;
        --left.tv_sec;
    }
    return left.tv_sec < 0 ? timespec{} : left;
}

bool FutexWait(const std::uint32_t* word, std::uint32_t expected, bool shared, const Deadline& deadline) noexcept
{
    // The bitset form takes an absolute time of the monotonic clock.
    const int operation = FUTEX_WAIT_BITSET | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    return LookAgain(syscall(SYS_futex, word, operation, expected, deadline.At(), nullptr, FUTEX_BITSET_MATCH_ANY));
}

bool FutexWaitMany(std::span<const futex_waitv> words, const Deadline& deadline) noexcept
{
    return LookAgain(
        syscall(SYS_futex_waitv, words.data(), static_cast<unsigned>(words.size()), 0, deadline.At(), CLOCK_MONOTONIC));
}

bool PollReadable(int descriptor, const Deadline& deadline) noexcept
{
    pollfd entry{descriptor, POLLIN, 0};
    timespec left{};
    if (deadline.At())
        left = deadline.Remaining();
    const long result = syscall(SYS_ppoll, &entry, 1, deadline.At() ? &left : nullptr, nullptr, 0);
    if (result == 0)
        errno = ETIMEDOUT;
    return result != 0 && LookAgain(result);
}

void FutexWake(const std::uint32_t* word, int count, bool shared) noexcept
{
    const int saved = errno;
    syscall(SYS_futex, word, FUTEX_WAKE | (shared ? 0 : FUTEX_PRIVATE_FLAG), count, nullptr, nullptr, 0);
    errno = saved;
}

} // namespace vlt::posix
