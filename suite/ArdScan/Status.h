// Counters of a scan handle, and the file that shows them. Counting is one atomic addition; the file
// and the last-scan callback are the work of a thread of their own, at most once a second, which sleeps
// while nothing is counted.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/Common/HostPath.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vlt::scan
{

enum class Counter : std::size_t {
    Scanned,      // read to the end or to a threat
    Cached,       // clean verdicts that the kernel was given to keep
    Detections,   // reported
    Denied,       // of these, accesses that were refused
    Errors,       // could not be read or scanned: neither clean nor a threat
    TooLarge,     // over the size limit
    NotListed,    // extension not in the list
    Excluded,     // file, folder or process excepted
    Late,         // accesses answered by policy because the verdict was not there in time
    LateInfected, // of these, allowed ones whose verdict then was a threat
    Lost,         // notifications that the system dropped; the folders were walked again
    Count_
};

class CStatus
{
public:
    CStatus() = default;
    ~CStatus() { Stop(); }
    CStatus(const CStatus&) = delete;
    CStatus& operator=(const CStatus&) = delete;

    void Count(Counter counter) noexcept
    {
        m_counters[static_cast<std::size_t>(counter)].fetch_add(1, std::memory_order_relaxed);
    }
    std::uint64_t Value(Counter counter) const noexcept
    {
        return m_counters[static_cast<std::size_t>(counter)].load(std::memory_order_relaxed);
    }

    // The last file scanned, for the callback, with its path as the host has it; not while an opener waits,
    // since it takes a lock.
    using NativeView = std::basic_string_view<HostPath::value_type>;
    void Scanned(NativeView path);
    // Something was counted without a scan.
    void Touch();

    void SetMode(std::string mode, std::string reason);
    void SetFolders(std::vector<std::string> folders);

    // An empty path writes no file. lastScan may be empty.
    void Start(const HostPath& file, std::function<void(const WString&)> lastScan);
    // The status file, or its next version. Scanning it would change the status for ever.
    bool IsOwnFile(const HostPath& path) const;
    // Writes the last state and ends the thread.
    void Stop();

    std::string Text() const; // JSON, one object

private:
    void Run();
    void Write(const std::string& text) const;

    std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(Counter::Count_)> m_counters{};
    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::atomic<bool> m_dirty{false};
    bool m_stop = false;
    bool m_modeChanged = false; // whoever asks right after a start is not to wait for the next second
    HostPath::string_type m_lastScanned;
    std::string m_mode = "stopped";
    std::string m_reason;
    std::vector<std::string> m_folders;
    HostPath m_file;
    std::function<void(const WString&)> m_lastScan;
    std::thread m_thread;
};

} // namespace vlt::scan
