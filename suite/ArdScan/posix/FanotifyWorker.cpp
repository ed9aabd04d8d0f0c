#include "suite/ArdScan/posix/FanotifyWorker.h"

#include "suite/ArdScan/posix/OpenFile.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/uio.h>

#ifndef FAN_MARK_EVICTABLE
#define FAN_MARK_EVICTABLE 0x00000200
#endif

namespace vlt::scan
{
namespace
{

constexpr off_t QuickSize = 64 << 10; // scanned without passing the lead on, unless it must come from disk
// A change within the same tick of the file system's clock leaves the same time stamp: verdicts on files
// as young as this are not kept.
constexpr std::int64_t RacyNanoseconds = 20'000'000;

std::int64_t Nanoseconds(const timespec& time)
{
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool SameContent(const struct stat& a, const struct stat& b)
{
    return a.st_size == b.st_size && Nanoseconds(a.st_mtim) == Nanoseconds(b.st_mtim) &&
           Nanoseconds(a.st_ctim) == Nanoseconds(b.st_ctim);
}

// While it is held nobody can begin to write the file. Held for the scan of a small file at most: a
// writer waits for it meanwhile. It is refused when the file is open for writing, and where the file system
// has no leases. The signal that announces a waiting writer is one that is ignored by default.
class CReadLease
{
public:
    explicit CReadLease(int file) : m_file(file)
    {
        if (fcntl(file, F_SETSIG, SIGURG) == 0)
            Take();
    }
    ~CReadLease() { Release(); }
    CReadLease(const CReadLease&) = delete;
    CReadLease& operator=(const CReadLease&) = delete;
    bool Held() const { return m_held; }
    bool Take() { return m_held = fcntl(m_file, F_SETLEASE, F_RDLCK) == 0; }
    void Release()
    {
        if (m_held)
            fcntl(m_file, F_SETLEASE, F_UNLCK);
        m_held = false;
    }

private:
    int m_file;
    bool m_held = false;
};

// For a file whose lease was given up for the scan: takes it again and compares.
bool IsUnchanged(int file, const struct stat& before, const timespec& seen, CReadLease& lease)
{
    struct stat after {
    };
    return lease.Take() && fstat(file, &after) == 0 && SameContent(before, after) &&
           Nanoseconds(after.st_ctim) <= Nanoseconds(seen) - RacyNanoseconds;
}

} // namespace

void CFanotifyGroup::Work(Slot& slot)
{
    Worker worker(m_context, slot);
    Event event{};
    bool hasQueued = false;
    while (TakeLead(event, hasQueued)) {
        worker.lead = true;
        while (worker.lead && !m_stopping) {
            if (hasQueued) {
                hasQueued = false;
                Handle(worker, event);
                break; // look for the next queued one
            }
            pollfd fds[] = {{m_fan.Get(), POLLIN, 0}, {m_stopEvent.Get(), POLLIN, 0}};
            if (poll(fds, 2, -1) > 0 && !fds[1].revents && ReadEvent(event))
                Handle(worker, event);
        }
        PassLead(worker.lead);
    }
}

// Waits to be the one that reads. False when the threads are to end.
bool CFanotifyGroup::TakeLead(Event& queued, bool& hasQueued)
{
    std::unique_lock lock(m_lock);
    ++m_followers;
    m_leadFree.wait(lock, [&] { return m_stopping || !m_lead; });
    --m_followers;
    if (m_stopping)
        return false;
    m_lead = true;
    m_gate = false;
    hasQueued = !m_queue.empty();
    if (hasQueued) {
        queued = m_queue.front();
        m_queue.pop_front();
    }
    return true;
}

void CFanotifyGroup::PassLead(bool& lead)
{
    if (!lead)
        return;
    lead = false;
    const std::lock_guard lock(m_lock);
    m_lead = false;
    if (m_followers > 0) {
        m_leadFree.notify_one();
    } else {
        m_gate = true;
        WakeWatchdog();
    }
}

void CFanotifyGroup::Begin(Slot& slot, const Event& event)
{
    slot.deadline = event.deadline;
    slot.file = event.file;
    slot.lateAnswer = 0;
    slot.state = (slot.state.load() & ~std::uint64_t{3}) | Pending;
    if (!m_watching.load() && !m_watching.exchange(true))
        WakeWatchdog();
}

// Settles that the access is refused, whoever answers. False when it was answered before.
bool CFanotifyGroup::Refuse(Slot& slot)
{
    std::uint64_t state = slot.state.load();
    return (state & 3) == Pending && slot.state.compare_exchange_strong(state, (state & ~std::uint64_t{3}) | Refused);
}

// False when the watchdog had answered.
bool CFanotifyGroup::Answer(Slot& slot, bool allow)
{
    std::uint64_t state = slot.state.load();
    const bool open = (state & 3) == Pending || (state & 3) == Refused;
    if (open && slot.state.compare_exchange_strong(state, (state & ~std::uint64_t{3}) | Answering)) {
        Respond(slot.file.load(), allow);
        slot.state = ((state >> 2) + 1) << 2;
        return true;
    }
    // The watchdog may be about to write its answer: the descriptor must stay until it has.
    while ((slot.state.load() & 3) != Idle)
        std::this_thread::yield();
    return false;
}

// This process and the excluded ones never wait for a scan: an engine that scans what its own callback
// opens could wait for itself.
bool CFanotifyGroup::AnswersAtOnce(Worker& worker, const Event& event)
{
    const bool own = event.process == m_ownProcess;
    if (!own && !worker.judge.Refresh().processes.Contains(event.process))
        return false;
    Respond(event.file, true);
    if (!own)
        m_context.status.Count(Counter::Excluded);
    return true;
}

void CFanotifyGroup::Handle(Worker& worker, const Event& event)
{
    const Fd file(event.file);
    if (AnswersAtOnce(worker, event))
        return;
    Begin(worker.slot, event);
    CJudge& judge = worker.judge;
    timespec seen{};
    clock_gettime(CLOCK_REALTIME_COARSE, &seen);
    // A file that is open for writing can change under the scan and through a mapping even without a
    // trace: its verdict is not kept. Asked before the scan, since such a writer may end during it.
    CReadLease lease(file.Get());
    const bool stable = lease.Held();
    struct stat info {
    };
    const bool regular = fstat(file.Get(), &info) == 0 && S_ISREG(info.st_mode);
    WString name;
    const bool nameMatters = judge.NameMatters();
    if (regular && nameMatters)
        name = ToWindows(PathOfOpenFile(file.Get()));
    if (!regular || (nameMatters && !judge.WantsName(name)) ||
        !judge.WantsSize(static_cast<std::uint64_t>(info.st_size))) {
        Answer(worker.slot, true);
        m_context.status.Touch();
        return;
    }
    if (info.st_size > QuickSize) {
        lease.Release();
        PassLead(worker.lead);
    }
    off_t offset = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) -> std::ptrdiff_t {
        if (lease.Held() && offset == info.st_size)
            return 0; // nobody can have made it longer
        const std::ptrdiff_t count = Read(worker, file.Get(), info.st_dev, buffer, offset);
        offset += count > 0 ? count : 0;
        return count;
    };
    Threat threat{};
    const Verdict verdict = judge.Scan(static_cast<std::uint64_t>(info.st_size), read, threat);
    if (verdict == Verdict::Infected) {
        lease.Release();
        HandleInfected(worker, event, threat);
    } else {
        const bool inTime = Answer(worker.slot, true);
        if (verdict == Verdict::Clean && stable && inTime &&
            (lease.Held() || IsUnchanged(file.Get(), info, seen, lease)))
            Ignore(file.Get());
    }
    lease.Release();
    if (!judge.Current().policy.callbacks.lastScan) { // nobody asks which file it was
        m_context.status.Touch();
        return;
    }
    std::array<char, 4096> path;
    m_context.status.Scanned(PathOfOpenFile(file.Get(), path));
}

void CFanotifyGroup::HandleInfected(Worker& worker, const Event& event, const Threat& threat)
{
    CJudge& judge = worker.judge;
    const HostPath path = PathOfOpenFile(event.file);
    const WString name = ToWindows(path);
    CHostFile file;
    if (m_context.IsInQuarantine(name) || !file.Borrow(event.file)) {
        Answer(worker.slot, true);
        return;
    }
    const bool pass = judge.Current().policy.firstAction <= AS_ACTION_PASS;
    bool denied = !pass && Refuse(worker.slot);
    if (!pass && !denied) {
        while ((worker.slot.state.load() & 3) != Idle)
            std::this_thread::yield();
        denied = worker.slot.lateAnswer.load() == FAN_DENY;
        if (!denied)
            m_context.status.Count(Counter::LateInfected);
    }
    PassLead(worker.lead);
    const std::uint32_t direction = event.mask & FAN_OPEN_EXEC_PERM ? AS_DIRECTION_EXECUTE : AS_DIRECTION_OPEN;
    judge.Report(threat, file, path, name, {event.process, direction, !pass, denied});
    Answer(worker.slot, !denied);
}

// The lead is passed on before bytes come from disk, as far as the file system can say that they would.
std::ptrdiff_t CFanotifyGroup::Read(Worker& worker, int file, dev_t device, std::span<std::uint8_t> buffer,
                                    off_t offset)
{
    iovec part{buffer.data(), buffer.size()};
    if (worker.lead && worker.unaskable != device) {
        const ssize_t count = preadv2(file, &part, 1, offset, RWF_NOWAIT);
        if (count >= 0)
            return count;
        if (errno == EOPNOTSUPP)
            worker.unaskable = device;
        else
            PassLead(worker.lead);
    }
    ssize_t count;
    do
        count = preadv(file, &part, 1, offset);
    while (count < 0 && errno == EINTR);
    return count;
}

// The kernel keeps the verdict until the file is written. Under a lease nobody can begin to write between
// the scan, or the comparison with what was there before it, and the mark.
void CFanotifyGroup::Ignore(int file)
{
    const unsigned flags = FAN_MARK_ADD | FAN_MARK_IGNORED_MASK;
    int result = -1;
    if (m_evictable) { // such a mark does not hold the file's inode in memory
        result = fanotify_mark(m_fan.Get(), flags | FAN_MARK_EVICTABLE, m_permissions, file, nullptr);
        if (result != 0 && errno == EINVAL)
            m_evictable = false;
    }
    if (result != 0)
        result = fanotify_mark(m_fan.Get(), flags, m_permissions, file, nullptr);
    if (result == 0)
        m_context.status.Count(Counter::Cached);
}

} // namespace vlt::scan
