#include "suite/ArdScan/posix/FanotifyWorker.h"
#include "suite/ArdScan/posix/Marks.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#ifndef FAN_MARK_EVICTABLE
#define FAN_MARK_EVICTABLE 0x00000200
#endif

namespace vlt::scan
{
namespace
{

constexpr std::size_t MaxQueued = 256; // each holds a descriptor
constexpr int TicksPerTimeout = 4;

bool Readable(int fd, int stop, int timeout, bool& stopped)
{
    pollfd fds[] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
    const int ready = poll(fds, 2, timeout);
    stopped = ready > 0 && fds[1].revents != 0;
    return ready > 0 && (fds[0].revents & POLLIN) != 0;
}

} // namespace

CFanotifyGroup::CFanotifyGroup(CScanContext& context, const EngineSettings& settings, std::uint64_t permissions)
    : m_context(context), m_timeout(std::int64_t{settings.answerTimeout} * 1000000),
      m_lateAllow(settings.late == LatePolicy::Allow), m_permissions(permissions),
      m_ownProcess(static_cast<std::uint32_t>(getpid())),
      m_fan(fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_QUEUE | FAN_UNLIMITED_MARKS,
                          O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK)),
      m_error(m_fan ? 0 : errno), m_stopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_wakeEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_slots(settings.workers)
{
    if (!m_fan)
        return;
    for (Slot& slot : m_slots)
        m_threads.emplace_back([this, &slot] { Work(slot); });
    m_threads.emplace_back([this] { Watch(); });
}

CFanotifyGroup::~CFanotifyGroup()
{
    if (!m_fan)
        return;
    m_stopping = true;
    eventfd_write(m_stopEvent.Get(), 1);
    {
        const std::lock_guard lock(m_lock);
        m_leadFree.notify_all();
    }
    // First nobody waits any more, then the threads: one of them may be in a callback for long. Everything
    // is answered, not only left to the closing of the group, which a forked process would hold open.
    RemoveMarks();
    for (Slot& slot : m_slots)
        AnswerFor(slot);
    {
        const std::lock_guard lock(m_lock);
        for (const Event& event : m_queue) {
            Respond(event.file, m_lateAllow);
            close(event.file);
        }
        m_queue.clear();
    }
    for (Event event; ReadEvent(event);) {
        Respond(event.file, m_lateAllow);
        close(event.file);
    }
    Fail(nullptr);
    for (std::thread& thread : m_threads)
        thread.join();
    for (const Event& event : m_queue) // read while this went on
        close(event.file);
}

std::int64_t CFanotifyGroup::Now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool CFanotifyGroup::MarkFolder(const char* folder)
{
    return AddFolderMark(m_fan.Get(), m_permissions, folder);
}

bool CFanotifyGroup::MarkWhole(const char* root, MountPolicy policy)
{
    return AddWholeMark(m_fan.Get(), m_permissions, root, policy);
}

void CFanotifyGroup::Forget(int file)
{
    fanotify_mark(m_fan.Get(), FAN_MARK_REMOVE | FAN_MARK_IGNORED_MASK, m_permissions, file, nullptr);
}

void CFanotifyGroup::RemoveMarks()
{
    for (const unsigned kind : {0u, unsigned{FAN_MARK_MOUNT}, unsigned{FAN_MARK_FILESYSTEM}})
        fanotify_mark(m_fan.Get(), FAN_MARK_FLUSH | kind, 0, AT_FDCWD, nullptr);
}

void CFanotifyGroup::Drain()
{
    RemoveMarks();
    const std::int64_t end = Now() + m_timeout;
    const auto busy = [&] {
        bool stopped;
        if (Readable(m_fan.Get(), m_stopEvent.Get(), 0, stopped))
            return true;
        const std::lock_guard lock(m_lock);
        return !m_queue.empty() || std::any_of(m_slots.begin(), m_slots.end(),
                                               [](const Slot& slot) { return (slot.state.load() & 3) != Idle; });
    };
    // An event is in the kernel's queue, in ours or in a slot, but for the instants between them: the
    // state has to be seen quiet twice.
    for (int quiet = 0; quiet < 2 && Now() < end;) {
        quiet = busy() ? 0 : quiet + 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool CFanotifyGroup::ReadEvent(Event& event)
{
    fanotify_event_metadata data{};
    const ssize_t size = read(m_fan.Get(), &data, sizeof(data)); // room for one: the next is another worker's
    if (size != static_cast<ssize_t>(sizeof(data)) || data.fd < 0)
        return false;
    if (data.vers != FANOTIFY_METADATA_VERSION) {
        close(data.fd);
        Fail("the kernel speaks another version of fanotify");
        return false;
    }
    event = {data.fd, static_cast<std::uint32_t>(data.pid), data.mask, Now() + m_timeout};
    return true;
}

void CFanotifyGroup::Respond(int file, bool allow)
{
    const fanotify_response response{file, static_cast<std::uint32_t>(allow ? FAN_ALLOW : FAN_DENY)};
    ssize_t written;
    do
        written = write(m_fan.Get(), &response, sizeof(response));
    while (written < 0 && errno == EINTR);
    if (written < 0 && errno != ENOENT)
        Fail("an answer could not be given");
}

// Puts something else behind the descriptor: the kernel lets every waiting opener pass as soon as the
// last thread that reads the group has been woken.
void CFanotifyGroup::Fail(const char* what)
{
    if (m_failed.exchange(true))
        return;
    m_stopping = true;
    eventfd_write(m_stopEvent.Get(), 1);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        dup3(null, m_fan.Get(), O_CLOEXEC);
        close(null);
    }
    if (what)
        m_context.status.SetMode("failed", what);
}

// --- The watchdog

void CFanotifyGroup::WakeWatchdog()
{
    eventfd_write(m_wakeEvent.Get(), 1);
}

// Answers in place of the slot's worker: as it decided, or else by policy. False when nothing is open.
bool CFanotifyGroup::AnswerFor(Slot& slot)
{
    std::uint64_t state = slot.state.load();
    bool refused;
    do {
        refused = (state & 3) == Refused;
        if ((state & 3) != Pending && !refused)
            return false;
    } while (!slot.state.compare_exchange_weak(state, (state & ~std::uint64_t{3}) | Answering));
    const bool allow = !refused && m_lateAllow;
    slot.lateAnswer = allow ? FAN_ALLOW : FAN_DENY;
    Respond(slot.file.load(), allow);
    slot.state = ((state >> 2) + 1) << 2;
    return true;
}

// Answers for those whose time is up. True while anything is under way.
bool CFanotifyGroup::AnswerLate()
{
    const std::int64_t now = Now();
    bool active = false;
    for (Slot& slot : m_slots) {
        if ((slot.state.load() & 3) == Idle)
            continue;
        active = true;
        if (slot.deadline.load() > now || !AnswerFor(slot))
            continue;
        m_context.status.Count(Counter::Late);
        m_context.status.Touch();
    }
    const std::lock_guard lock(m_lock);
    while (!m_queue.empty() && m_queue.front().deadline <= now) {
        Respond(m_queue.front().file, m_lateAllow);
        close(m_queue.front().file);
        m_queue.pop_front();
        m_context.status.Count(Counter::Late);
    }
    return active || !m_queue.empty();
}

void CFanotifyGroup::Watch()
{
    Slot own;
    Worker worker(m_context, own);
    const int tick = static_cast<int>(std::clamp<std::int64_t>(m_timeout / 1000000 / TicksPerTimeout, 5, 1000));
    while (!m_stopping) {
        const bool reading = m_gate.load();
        pollfd fds[] = {{m_wakeEvent.Get(), POLLIN, 0}, {m_stopEvent.Get(), POLLIN, 0}, {m_fan.Get(), POLLIN, 0}};
        poll(fds, reading ? 3 : 2, reading || m_watching.load() ? tick : -1);
        if (m_stopping)
            return;
        eventfd_t ignored;
        if (fds[0].revents)
            eventfd_read(m_wakeEvent.Get(), &ignored);
        if (m_gate.load())
            ReadForBusyWorkers(worker);
        if (AnswerLate() || fds[0].revents)
            continue;
        // Asleep until a worker begins something. One that began meanwhile has seen the flag still set,
        // so look again after clearing it.
        m_watching = false;
        if (AnswerLate())
            m_watching = true;
    }
}

void CFanotifyGroup::ReadForBusyWorkers(Worker& worker)
{
    Event event;
    while (m_gate.load() && !m_stopping && ReadEvent(event)) {
        worker.judge.Refresh();
        if (AnswersAtOnce(worker, event)) {
            close(event.file);
            continue;
        }
        std::unique_lock lock(m_lock);
        if (m_queue.size() < MaxQueued) {
            m_queue.push_back(event);
            continue;
        }
        lock.unlock();
        Respond(event.file, m_lateAllow);
        close(event.file);
        m_context.status.Count(Counter::Late);
    }
}

} // namespace vlt::scan
