// Scans of files that were written or moved, after the fact. Paths are queued once however often they
// change, so a storm of writes costs memory for the different files only, and that is bounded.
#pragma once

#include "suite/ArdScan/ScanContext.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace vlt::scan
{

class CAfterWrite
{
public:
    explicit CAfterWrite(CScanContext& context);
    ~CAfterWrite(); // what is queued is not scanned any more
    CAfterWrite(const CAfterWrite&) = delete;
    CAfterWrite& operator=(const CAfterWrite&) = delete;

    // False when the queue is full and the path was not taken.
    bool Add(const HostPath& path, std::uint32_t direction);

private:
    using Clock = std::chrono::steady_clock;
    struct Item {
        HostPath path;
        Clock::time_point due;
        unsigned tries;
    };
    static constexpr std::size_t MaxQueued = 1u << 18;
    static constexpr unsigned MaxTries = 100; // of a file that its writer shares with nobody

    void Run();

    CScanContext& m_context;
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Item> m_queue;
    std::unordered_map<std::string, std::uint32_t> m_directions; // of the queued paths
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace vlt::scan
