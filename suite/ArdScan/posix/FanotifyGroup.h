// One fanotify group of permission events: its marks, the workers that answer, and the watchdog that
// answers for them.
//
// What keeps the machine alive. Every event is answered by exactly one of: the worker that has it; the
// watchdog, by policy, when the time is up; the kernel, which lets everything pass when the group is
// closed, and that happens when this object goes, when answering fails, or when the process dies.
//
// Who reads. One worker leads and reads the group; it passes the lead on before anything that may take
// long (a large file, a read from disk, the caller's callback). When no worker is free the watchdog reads
// itself: it answers for this process and the excluded ones at once and queues the rest.
#pragma once

#include "platform/posix/core/Fd.h"
#include "suite/ArdScan/Ini.h"
#include "suite/ArdScan/ScanContext.h"

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace vlt::scan
{

using posix::Fd;

class CFanotifyGroup
{
public:
    // `permissions`: of FAN_OPEN_PERM and FAN_OPEN_EXEC_PERM. Ok() is false when the kernel refuses, with
    // the reason in Error().
    CFanotifyGroup(CScanContext& context, const EngineSettings& settings, std::uint64_t permissions);
    ~CFanotifyGroup();
    CFanotifyGroup(const CFanotifyGroup&) = delete;
    CFanotifyGroup& operator=(const CFanotifyGroup&) = delete;

    bool Ok() const { return static_cast<bool>(m_fan); }
    int Error() const { return m_error; }

    // Marks the files directly in a folder, or a whole mount or file system. False with errno.
    bool MarkFolder(const char* folder);
    bool MarkWhole(const char* root, MountPolicy policy);
    // Takes back the verdict kept for an open file.
    void Forget(int file);
    // Takes back all verdicts, and every mark with them.
    void RemoveMarks();

    // Takes no new events and lets the workers finish those that wait, for as long as an answer may take.
    void Drain();

private:
    struct Event {
        int file;
        std::uint32_t process;
        std::uint64_t mask;
        std::int64_t deadline; // nanoseconds of the steady clock
    };
    // What a worker is at. The state changes by compare-and-swap with a sequence number in it, so that
    // the watchdog can never answer for the next event in place of the late one.
    enum State : std::uint64_t { Idle, Pending, Refused, Answering };
    struct alignas(64) Slot {
        std::atomic<std::uint64_t> state{Idle}; // sequence * 4 + State
        std::atomic<std::int64_t> deadline{0};
        std::atomic<int> file{-1};
        std::atomic<int> lateAnswer{0}; // 0: none
    };
    struct Worker;

    static std::int64_t Now();
    bool ReadEvent(Event& event);
    void Respond(int file, bool allow);
    void Fail(const char* what);

    void Work(Slot& slot);
    bool TakeLead(Event& queued, bool& hasQueued);
    void PassLead(bool& lead);
    void Handle(Worker& worker, const Event& event);
    void HandleInfected(Worker& worker, const Event& event, const Threat& threat);
    bool AnswersAtOnce(Worker& worker, const Event& event);
    std::ptrdiff_t Read(Worker& worker, int file, dev_t device, std::span<std::uint8_t> buffer, off_t offset);
    void Ignore(int file);

    void Begin(Slot& slot, const Event& event);
    bool Refuse(Slot& slot);
    bool Answer(Slot& slot, bool allow);

    void Watch();
    void WakeWatchdog();
    bool AnswerFor(Slot& slot);
    bool AnswerLate();
    void ReadForBusyWorkers(Worker& worker);

    CScanContext& m_context;
    const std::int64_t m_timeout;
    const bool m_lateAllow;
    const std::uint64_t m_permissions;
    const std::uint32_t m_ownProcess;
    Fd m_fan;
    int m_error;
    Fd m_stopEvent; // readable from the moment that the threads are to end
    Fd m_wakeEvent; // for the watchdog
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_watching{false};
    std::atomic<bool> m_gate{false}; // no worker reads: the watchdog does
    std::atomic<bool> m_failed{false};
    std::atomic<bool> m_evictable{true};

    std::mutex m_lock; // of the lead and the queue; not taken on the way of a quick answer
    std::condition_variable m_leadFree;
    bool m_lead = false;
    unsigned m_followers = 0;
    std::deque<Event> m_queue;

    std::vector<Slot> m_slots;
    std::vector<std::thread> m_threads;
};

} // namespace vlt::scan
