// Waiting for a condition that another thread or process makes true.
#pragma once

#include <chrono>
#include <thread>

namespace vlt::test
{

// Asks the predicate every millisecond until it is true or the time is up; returns its last answer.
// The time is a limit for a hanging test, not an expectation: pass seconds.
template <typename Predicate>
bool Eventually(unsigned milliseconds, Predicate&& predicate)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return static_cast<bool>(predicate());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace vlt::test
