// What the layer knows of the calling thread, and the points at which TerminateThread may end it.
//
// TerminateThread raises a flag and sends a signal. The signal ends the thread at once when it is
// inside a WaitScope, which holds nothing but a raw system call; elsewhere it returns, and the flag
// ends the thread at its next wait. A scope announces itself before it reads the flag, and the
// sender raises the flag before it signals, so no request falls between the two.
#pragma once

#include "platform/posix/kernel/ThreadRecord.h"

#include <atomic>

namespace vlt::posix
{

// What a wait must undo when its thread is ended in it: destructors do not run then.
class Interruptible
{
public:
    virtual void Abandon() noexcept = 0;

protected:
    ~Interruptible() = default;
};

struct ThreadSelf {
    ThreadRecord* record = nullptr; // null in threads that the layer did not start, until they ask
    Interruptible* volatile wait = nullptr;
    std::uint32_t id = 0;
};
extern thread_local constinit ThreadSelf t_self __attribute__((tls_model("initial-exec"), visibility("hidden")));

// Ends the calling thread, whose termination was requested.
[[noreturn]] void EndTerminatedThread() noexcept;

// At the beginning of every call that may wait, also when it then does not.
inline void EndIfTerminated() noexcept
{
    if (t_self.record && t_self.record->IsTerminated()) [[unlikely]]
        EndTerminatedThread();
}

class WaitScope
{
public:
    explicit WaitScope(Interruptible& wait) noexcept
    {
        t_self.wait = &wait;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (t_self.record && t_self.record->IsTerminated()) [[unlikely]] {
            t_self.wait = nullptr;
            wait.Abandon();
            EndTerminatedThread();
        }
    }
    ~WaitScope()
    {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        t_self.wait = nullptr;
    }
    WaitScope(const WaitScope&) = delete;
    WaitScope& operator=(const WaitScope&) = delete;
};

// For waits that have nothing to undo.
class PlainWait final : public Interruptible
{
public:
    void Abandon() noexcept override {}
};

} // namespace vlt::posix
