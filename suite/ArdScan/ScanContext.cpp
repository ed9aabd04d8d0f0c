#include "suite/ArdScan/ScanContext.h"

#include "platform/Text.h"
#include "suite/ArdScan/HostFile.h"

#include <algorithm>

namespace vlt::scan
{
namespace
{

thread_local bool t_inCallback = false;

struct CallbackScope {
    CallbackScope() { t_inCallback = true; }
    ~CallbackScope() { t_inCallback = false; }
};

// Actions on a file come with the quarantine; until then they fail here, and the second one is replaced
// by the refusal where there is something to refuse.
void FillActions(AsDetectionRecord& record, const Policy& policy, bool deniable, bool denied)
{
    const auto outcome = [&](std::uint32_t action) {
        if (action == AS_ACTION_NONE)
            return AS_RESULT_NONE;
        if (action == AS_ACTION_PASS)
            return AS_RESULT_DONE;
        return action == AS_ACTION_DENY && denied ? AS_RESULT_DONE : AS_RESULT_FAILED;
    };
    record.firstAction = policy.firstAction;
    record.firstResult = outcome(policy.firstAction);
    if (record.firstResult != AS_RESULT_FAILED)
        return;
    record.secondAction = deniable ? AS_ACTION_DENY : policy.secondAction;
    record.secondResult = outcome(record.secondAction);
}

} // namespace

bool InCallback()
{
    return t_inCallback;
}

std::shared_ptr<const Snapshot> CScanContext::Current() const
{
    const std::lock_guard lock(m_lock);
    return m_current;
}

const Snapshot& CJudge::Refresh()
{
    const std::uint64_t version = m_context.Version();
    if (version != m_version) {
        m_snapshot = m_context.Current();
        m_version = version;
    }
    return *m_snapshot;
}

bool CJudge::NameMatters() const
{
    return !m_snapshot->policy.extensions.All() || !m_snapshot->exceptions.Empty();
}

bool CJudge::WantsName(WStringView windowsPath)
{
    if (m_snapshot->exceptions.Contains(windowsPath)) {
        m_context.status.Count(Counter::Excluded);
        return false;
    }
    if (!m_snapshot->policy.extensions.Contains(windowsPath)) {
        m_context.status.Count(Counter::NotListed);
        return false;
    }
    return true;
}

bool CJudge::WantsSize(std::uint64_t size)
{
    if (size <= m_snapshot->policy.sizeLimit)
        return true;
    m_context.status.Count(Counter::TooLarge);
    return false;
}

Verdict CJudge::Scan(std::uint64_t size, const ReadFunction& read, Threat& threat)
{
    if (!m_snapshot->patterns) {
        m_context.status.Count(Counter::Errors);
        return Verdict::Failed;
    }
    const ScanResult result = m_scanner.Scan(*m_snapshot->patterns, m_snapshot->policy.filter, size, read);
    if (result.outcome == ScanOutcome::Failed) {
        m_context.status.Count(Counter::Errors);
        return Verdict::Failed;
    }
    m_context.status.Count(Counter::Scanned);
    if (result.outcome == ScanOutcome::Clean)
        return Verdict::Clean;
    threat = result.threat;
    return Verdict::Infected;
}

Verdict CJudge::ScanPath(const HostPath& path, std::uint32_t direction, bool lastTry)
{
    Refresh();
    if (m_context.status.IsOwnFile(path))
        return Verdict::Skipped;
    const WString name = ToWindows(path);
    if (!WantsName(name))
        return Verdict::Skipped;
    CHostFile file;
    switch (file.Open(path)) {
    case OpenResult::Opened:
        break;
    case OpenResult::NotRegular:
    case OpenResult::Gone:
        return Verdict::Skipped;
    case OpenResult::Busy:
        if (!lastTry)
            return Verdict::Busy;
        [[fallthrough]];
    default:
        m_context.status.Count(Counter::Errors);
        return Verdict::Failed;
    }
    if (!WantsSize(file.Size()))
        return Verdict::Skipped;
    Threat threat{};
    const Verdict verdict = Scan(
        file.Size(), [&](std::span<std::uint8_t> buffer) { return file.Read(buffer); }, threat);
    if (verdict == Verdict::Infected)
        Report(threat, name, 0, direction, false, false);
    m_context.status.Scanned(name);
    return verdict;
}

void CJudge::Report(const Threat& threat, WStringView windowsPath, std::uint32_t processId, std::uint32_t direction,
                    bool deniable, bool denied)
{
    const Policy& policy = m_snapshot->policy;
    AsDetectionRecord record{};
    const std::string& name = threat.signature->name;
    std::copy_n(name.begin(), std::min(name.size(), std::size(record.threatName) - 1), record.threatName);
    FillActions(record, policy, deniable, denied);
    record.processId = processId;
    record.direction = direction;
    CopyToField(record.infectedPath, windowsPath);
    record.threatKind = threat.kind == PatternKind::Spyware ? threat.signature->spywareKind : 0;
    record.denied = denied ? 1 : 0;

    m_context.status.Count(Counter::Detections);
    if (denied)
        m_context.status.Count(Counter::Denied);
    const bool spyware = record.threatKind != 0;
    const AsDetectionCallback callback = spyware ? policy.callbacks.spyware : policy.callbacks.virus;
    if (callback) {
        const CallbackScope scope;
        callback(spyware ? policy.callbacks.spywareContext : policy.callbacks.virusContext, &record);
    }
}

} // namespace vlt::scan
