// vlctl watch: each detection at the moment in which the service broadcasts it.
//
// One thread takes the messages, since the service waits for it, and the main thread prints them,
// which may take as long as the reader of the output likes.
#include "engine/ArdScanAbi.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/DetectionNames.h"
#include "tools/vlctl/Interrupt.h"
#include "tools/vlctl/NotifyReceiver.h"
#include "tools/vlctl/Text.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace vlt::ctl
{
namespace
{

constexpr ULONGLONG Never = ~0ull;

struct Settings {
    unsigned count = 0;
    unsigned timeoutSeconds = 0;
    bool list = false;
};

struct Detection {
    SYSTEMTIME time{}; // of its arrival
    AsDetectionRecord record{};
};

// Between the two threads. Bounded, so that an output that nobody reads costs detections and not all
// memory.
class Queue
{
public:
    Queue() : m_changed(CreateEventW(nullptr, FALSE, FALSE, nullptr))
    {
        if (!m_changed)
            FailWith(GetLastError(), "event");
    }

    void Push(const Detection& detection)
    {
        const std::lock_guard guard(m_lock);
        if (m_waiting.size() < Longest)
            m_waiting.push_back(detection);
        else
            ++m_lost;
        SetEvent(m_changed.Get());
    }

    // No more will come.
    void Close()
    {
        const std::lock_guard guard(m_lock);
        m_closed = true;
        SetEvent(m_changed.Get());
    }

    // Waits up to a tick count. False when the time is up, or all has been popped after the end.
    bool Pop(Detection& detection, ULONGLONG deadline)
    {
        for (;;) {
            {
                const std::lock_guard guard(m_lock);
                if (!m_waiting.empty()) {
                    detection = m_waiting.front();
                    m_waiting.pop_front();
                    return true;
                }
                if (m_closed)
                    return false;
            }
            const ULONGLONG now = GetTickCount64();
            if (now >= deadline)
                return false;
            WaitForSingleObject(m_changed.Get(), deadline == Never ? INFINITE : static_cast<DWORD>(deadline - now));
        }
    }

    bool Closed()
    {
        const std::lock_guard guard(m_lock);
        return m_closed;
    }

    unsigned TakeLost()
    {
        const std::lock_guard guard(m_lock);
        return std::exchange(m_lost, 0u);
    }

private:
    static constexpr std::size_t Longest = 16384; // 30 MB

    const KernelHandle m_changed;
    std::mutex m_lock; // of all below
    std::deque<Detection> m_waiting;
    unsigned m_lost = 0;
    bool m_closed = false;
};

// The thread that takes the messages, from construction to destruction.
class Taker
{
public:
    Taker(NotifyReceiver& receiver, Queue& queue, HANDLE stop)
        : m_stop(stop), m_thread([this, &receiver, &queue] { Run(receiver, queue); })
    {
    }
    ~Taker()
    {
        SetEvent(m_stop);
        m_thread.join();
    }
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;

    // After the end of the queue: why it ended, null when it was asked to.
    std::exception_ptr Failure() const { return m_failure; }

private:
    void Run(NotifyReceiver& receiver, Queue& queue)
    {
        try {
            receiver.Run(m_stop, [&](std::span<const BYTE> payload, DWORD size) {
                Detection detection;
                GetLocalTime(&detection.time);
                if (size == sizeof detection.record) {
                    std::memcpy(&detection.record, payload.data(), sizeof detection.record);
                    queue.Push(detection);
                } else {
                    std::fprintf(stderr, "vlctl: a message of %lu bytes is not a detection\n",
                                 static_cast<unsigned long>(size));
                }
            });
        } catch (...) {
            m_failure = std::current_exception();
        }
        queue.Close();
    }

    HANDLE m_stop;
    std::exception_ptr m_failure;
    std::thread m_thread;
};

std::string Text(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    const SYSTEMTIME& time = detection.time;
    std::string actions = ActionText(record.firstAction, record.firstResult);
    if (record.secondAction != AS_ACTION_NONE)
        actions += ", " + ActionText(record.secondAction, record.secondResult);
    std::string file = Printable(FieldText(record.infectedPath));
    if (record.secondPath[0] != 0)
        file += (file.empty() ? "(" : " (") + Printable(FieldText(record.secondPath)) + ')';
    return Format("%04d-%02d-%02d %02d:%02d:%02d  %s  %s  %s\n", time.wYear, time.wMonth, time.wDay, time.wHour,
                  time.wMinute, time.wSecond, Printable(FieldText(record.threatName)), actions, file);
}

std::string Line(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

std::string Json(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    const SYSTEMTIME& time = detection.time;
    return Line({{"time", Format("%04d-%02d-%02dT%02d:%02d:%02d.%03d", time.wYear, time.wMonth, time.wDay, time.wHour,
                                 time.wMinute, time.wSecond, time.wMilliseconds)},
                 {"threat", Utf8(FieldText(record.threatName))},
                 {"firstAction", record.firstAction},
                 {"firstResult", record.firstResult},
                 {"secondAction", record.secondAction},
                 {"secondResult", record.secondResult},
                 {"processId", record.processId},
                 {"direction", record.direction},
                 {"file", Utf8(FieldText(record.infectedPath))},
                 {"encodedFile", Utf8(FieldText(record.encodedPath))},
                 {"secondFile", Utf8(FieldText(record.secondPath))},
                 {"threatKind", record.threatKind},
                 {"noLog", record.noLog},
                 {"denied", record.denied}});
}

void ListReceivers(Run& run)
{
    const std::optional<ReceiverList> list = ReceiverList::Open(kVirusFoundChannel);
    std::vector<std::vector<std::string>> rows{{"SLOT", "SECTION", "NAME"}};
    for (const ReceiverList::Entry& entry : list ? list->Entries() : std::vector<ReceiverList::Entry>()) {
        const WString name = ToWide(entry.name);
        if (run.json)
            Print(Line({{"slot", entry.slot}, {"live", entry.live}, {"name", Utf8(name)}}));
        rows.push_back({std::to_string(entry.slot), entry.live ? "live" : "gone", Printable(name)});
    }
    if (rows.size() == 1)
        run.exit = ExitNo;
    else if (!run.json)
        Print(Table(rows));
}

void Watch(const Settings& settings, Run& run)
{
    if (settings.list)
        return ListReceivers(run);
    const HANDLE stop = InterruptEvent();
    NotifyReceiver receiver(kVirusFoundChannel);
    std::fprintf(stderr, "vlctl: watching; Ctrl-C ends it\n");
    Queue queue;
    Taker taker(receiver, queue, stop);
    const ULONGLONG deadline =
        settings.timeoutSeconds == 0 ? Never : GetTickCount64() + settings.timeoutSeconds * 1000ull;
    unsigned shown = 0;
    Detection detection;
    while ((settings.count == 0 || shown < settings.count) && queue.Pop(detection, deadline)) {
        Print(run.json ? Json(detection) : Text(detection));
        ++shown;
        if (const unsigned lost = queue.TakeLost())
            std::fprintf(stderr, "vlctl: %u detections not shown: the output is read too slowly\n", lost);
    }
    if (queue.Closed() && taker.Failure())
        std::rethrow_exception(taker.Failure());
    if (!queue.Closed() && shown < std::max(settings.count, 1u))
        run.exit = ExitNo;
}

} // namespace

void AddWatchCommand(CLI::App& app, Run& run)
{
    auto settings = std::make_shared<Settings>();
    CLI::App* const watch = app.add_subcommand("watch", "Show each detection as it happens, until interrupted");
    watch->add_option("--count", settings->count, "End after so many")->check(CLI::PositiveNumber);
    watch
        ->add_option("--timeout", settings->timeoutSeconds,
                     "End after so many seconds; 1 when less than COUNT (default: 1) was shown")
        ->check(CLI::Range(1u, 1000000u));
    watch->add_flag("--list", settings->list, "Show who is watching instead; 1 when nobody is");
    watch->add_flag("--json", run.json, "Print one JSON object a line");
    watch->callback([settings, &run] { Watch(*settings, run); });
}

} // namespace vlt::ctl
