// The bare futex calls that the wake-up figures are held against.
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bench
{

// Sleeps until one of the words is not 0.
inline void WaitMany(std::atomic<std::uint32_t>* words, std::size_t count)
{
    futex_waitv entries[FUTEX_WAITV_MAX];
    for (std::size_t i = 0; i < count; ++i) {
        entries[i] = {};
        entries[i].uaddr = reinterpret_cast<std::uint64_t>(words + i);
        entries[i].flags = FUTEX_32 | FUTEX_PRIVATE_FLAG;
    }
    syscall(SYS_futex_waitv, entries, static_cast<unsigned>(count), 0, nullptr, 0);
}

// A word that two sides pass back and forth: 1 is set, 0 is not. `shared` is for two processes.
class BareEvent
{
public:
    void Set(bool shared)
    {
        m_word.store(1, std::memory_order_release);
        syscall(SYS_futex, &m_word, shared ? FUTEX_WAKE : FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }

    void Wait(bool shared)
    {
        while (m_word.exchange(0, std::memory_order_acquire) == 0)
            syscall(SYS_futex, &m_word, shared ? FUTEX_WAIT : FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }

private:
    std::atomic<std::uint32_t> m_word{0};
};

} // namespace bench
