// What the scans of one scan handle share: the patterns, the policy and the exceptions in force, the
// counters, and the way to report a detection.
#pragma once

#include "suite/ArdScan/Actions.h"
#include "suite/ArdScan/Policy.h"
#include "suite/ArdScan/ProcessList.h"
#include "suite/ArdScan/Status.h"
#include "suite/Common/HostPath.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace vlt::scan
{

// One state of the settings; never changed once it is published.
struct Snapshot {
    std::shared_ptr<const CPatternSet> patterns;
    Policy policy;
    CExceptionList exceptions;
    CProcessList processes;
};

enum class Verdict { Clean, Infected, Skipped, Busy, Failed };

class CScanContext
{
public:
    CStatus status;
    CFilesInWork filesInWork;

    // To be set before the first scan. What lies in it is put away already and not looked at again.
    void SetQuarantineFolder(const HostPath& folder);
    const HostPath& QuarantineFolder() const { return m_quarantineFolder; }
    bool IsInQuarantine(WStringView windowsPath) const;

    std::shared_ptr<const Snapshot> Current() const;

    // Publishes a changed copy.
    template <typename Change>
    void Update(Change&& change)
    {
        const std::lock_guard lock(m_lock);
        auto next = std::make_shared<Snapshot>(*m_current);
        change(*next);
        m_current = std::move(next);
        m_version.fetch_add(1, std::memory_order_release);
    }

    std::uint64_t Version() const { return m_version.load(std::memory_order_acquire); }

private:
    HostPath m_quarantineFolder;
    WString m_quarantinePrefix; // folded, with a backslash at the end
    mutable std::mutex m_lock;
    std::shared_ptr<const Snapshot> m_current = std::make_shared<const Snapshot>();
    std::atomic<std::uint64_t> m_version{1};
};

// A thread's view of the context, which takes the lock only after a change, and its scanner.
class CJudge
{
public:
    explicit CJudge(CScanContext& context) : m_context(context) {}

    const Snapshot& Refresh();
    const Snapshot& Current() const { return *m_snapshot; } // since the last Refresh
    // Before a long wait: what is not in force any more is not to live on because of this view.
    void Release();

    // Whether the name lets the file be scanned; counts it when not.
    bool WantsName(WStringView windowsPath);
    // Whether the name matters at all, so that a caller may spare finding it out.
    bool NameMatters() const;
    bool WantsSize(std::uint64_t size);
    // Counts the outcome. The threat is valid until the next Refresh.
    Verdict Scan(std::uint64_t size, const ReadFunction& read, Threat& threat);

    // Scans a file by its path and reports what is found; for scans after the fact. Busy is a file that
    // may be tried again, unless this is the last try: then it counts as an error.
    Verdict ScanPath(const HostPath& path, std::uint32_t direction, bool lastTry);

    // Carries out the actions and calls the detection callback. `deniable`: the access waits for an answer and is
    // refused unless the first action is to let it pass; `denied`: it was or will be. What another thread is at work
    // on, or has just taken away, is only refused.
    struct Access {
        std::uint32_t processId;
        std::uint32_t direction;
        bool deniable;
        bool denied;
    };
    void Report(const Threat& threat, CHostFile& file, const HostPath& path, WStringView windowsPath,
                const Access& access);

    CScanContext& Context() { return m_context; }

private:
    bool Act(AsDetectionRecord& record, const InfectedFile& infected, const Access& access);

    CScanContext& m_context;
    std::shared_ptr<const Snapshot> m_snapshot;
    std::uint64_t m_version = 0;
    CScanner m_scanner;
};

// True on a thread that is inside one of the caller's callbacks: it must not stop what it runs in.
bool InCallback();

} // namespace vlt::scan
