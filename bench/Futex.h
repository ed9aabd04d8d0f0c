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
