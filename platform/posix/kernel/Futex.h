// The kernel's wait primitive. Every blocking call of the layer ends here.
//
// The raw system call on purpose: no runtime library stands between the sleeping thread and the
// signal that may end it (see ThreadSelf.h).
#pragma once

#include "platform/posix/win32/base.h"

#include <climits>
#include <cstdint>
#include <linux/futex.h>
#include <span>
#include <time.h>

namespace vlt::posix
{

// Nanoseconds of the monotonic clock, the one that all deadlines are on. Never 0.
std::uint64_t MonotonicNow() noexcept;

// A moment on the monotonic clock; made from a Windows time-out in milliseconds.
class Deadline
{
public:
    explicit Deadline(DWORD milliseconds) noexcept;

    // Not later than that moment of MonotonicNow; true when it was later.
    bool LimitTo(std::uint64_t nanoseconds) noexcept;

    // Null when there is no end.
    const timespec* At() const noexcept { return m_infinite ? nullptr : &m_at; }
    // Zero when passed; meaningful only with an end.
    timespec Remaining() const noexcept;

private:
    bool m_infinite;
    timespec m_at{};
};

// Sleep while *word == expected. True: woken, the word differed, or a signal came: look again.
// False: the deadline passed, or the kernel refused (errno is then not ETIMEDOUT).
bool FutexWait(const std::uint32_t* word, std::uint32_t expected, bool shared, const Deadline& deadline) noexcept;

// The same for several words; at most FUTEX_WAITV_MAX of them.
bool FutexWaitMany(std::span<const futex_waitv> words, const Deadline& deadline) noexcept;

// The same results for a descriptor that becomes readable.
bool PollReadable(int descriptor, const Deadline& deadline) noexcept;

void FutexWake(const std::uint32_t* word, int count, bool shared) noexcept;

inline futex_waitv MakeFutexWaitV(const std::uint32_t* word, std::uint32_t expected, bool shared) noexcept
{
    futex_waitv entry{};
    entry.val = expected;
    entry.uaddr = reinterpret_cast<std::uint64_t>(word);
    entry.flags = FUTEX_32 | (shared ? 0u : static_cast<std::uint32_t>(FUTEX_PRIVATE_FLAG));
    return entry;
}

} // namespace vlt::posix
