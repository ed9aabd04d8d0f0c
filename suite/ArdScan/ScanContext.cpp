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

} // namespace

bool InCallback()
{
    return t_inCallback;
}

void CScanContext::SetQuarantineFolder(const HostPath& folder)
{
    m_quarantineFolder = folder;
    m_quarantinePrefix = FoldPath(ToWindows(folder)) + WCHAR('\\');
}

bool CScanContext::IsInQuarantine(WStringView windowsPath) const
{
    return m_quarantinePrefix.size() > 1 && FoldPath(windowsPath).starts_with(m_quarantinePrefix);
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

void CJudge::Release()
{
    m_snapshot.reset();
    m_version = 0; // none that was ever published
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
    const bool changes =
        m_snapshot->policy.firstAction > AS_ACTION_PASS && m_snapshot->policy.firstAction < AS_ACTION_DENY;
    if (!lastTry && changes && file.IsHeld(path))
        return Verdict::Busy; // nothing could be done about it yet
    Threat threat{};
    const Verdict verdict = Scan(
        file.Size(), [&](std::span<std::uint8_t> buffer) { return file.Read(buffer); }, threat);
    if (verdict == Verdict::Infected && !m_context.IsInQuarantine(name))
        Report(threat, file, path, name, {0, direction, false, false});
    m_context.status.Scanned(path.native());
    return verdict;
}

// Notes what was done. False when there is nothing to tell.
bool CJudge::Act(AsDetectionRecord& record, const InfectedFile& infected, const Access& access)
{
    const Policy& policy = infected.policy;
    record.firstAction = policy.firstAction;
    if (policy.firstAction <= AS_ACTION_PASS) {
        record.firstResult = policy.firstAction == AS_ACTION_PASS ? AS_RESULT_DONE : AS_RESULT_NONE;
        return true;
    }
    const CFilesInWork::Claim claim(m_context.filesInWork, infected.file.Id());
    if (!claim || infected.file.IsDeleted()) {
        record.firstAction = AS_ACTION_DENY;
        record.firstResult = access.denied ? AS_RESULT_DONE : AS_RESULT_FAILED;
        return access.deniable;
    }
    WString encoded;
    const auto carryOut = [&](std::uint32_t action, bool second) {
        const bool done = action == AS_ACTION_DENY
                              ? access.denied
                              : ChangeFile(infected, action, second, m_context.QuarantineFolder(), encoded);
        return done ? AS_RESULT_DONE : AS_RESULT_FAILED;
    };
    record.firstResult = carryOut(policy.firstAction, false);
    if (record.firstResult == AS_RESULT_FAILED) {
        record.secondAction = policy.secondAction;
        if (policy.secondAction <= AS_ACTION_PASS && access.deniable)
            record.secondAction = AS_ACTION_DENY; // it is refused all the same
        if (record.secondAction > AS_ACTION_PASS)
            record.secondResult = carryOut(record.secondAction, true);
        else if (record.secondAction == AS_ACTION_PASS)
            record.secondResult = AS_RESULT_DONE;
    }
    CopyToField(record.encodedPath, WStringView(encoded));
    return true;
}

void CJudge::Report(const Threat& threat, CHostFile& file, const HostPath& path, WStringView windowsPath,
                    const Access& access)
{
    const Policy& policy = m_snapshot->policy;
    AsDetectionRecord record{};
    const std::string& name = threat.signature->name;
    std::copy_n(name.begin(), std::min(name.size(), std::size(record.threatName) - 1), record.threatName);
    record.processId = access.processId;
    record.direction = access.direction;
    CopyToField(record.infectedPath, windowsPath);
    record.threatKind = threat.kind == PatternKind::Spyware ? threat.signature->spywareKind : 0;
    record.denied = access.denied ? 1 : 0;
    if (!Act(record, {file, path, windowsPath, *m_snapshot->patterns, policy, m_scanner}, access))
        return;

    m_context.status.Count(Counter::Detections);
    if (access.denied)
        m_context.status.Count(Counter::Denied);
    const bool spyware = record.threatKind != 0;
    const AsDetectionCallback callback = spyware ? policy.callbacks.spyware : policy.callbacks.virus;
    if (callback) {
        const CallbackScope scope;
        callback(spyware ? policy.callbacks.spywareContext : policy.callbacks.virusContext, &record);
    }
}

} // namespace vlt::scan
