// The detections that the service broadcasts, one after the other.
//
// A thread of its own takes the messages, since the service waits for it, and whoever shows them may take
// as long as the reader of the output likes.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/Channel/NotifyReceiver.h"

#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace vlt::suite
{

struct Detection {
    SYSTEMTIME time{}; // of its arrival
    AsDetectionRecord record{};
};

class DetectionFeed
{
public:
    static constexpr ULONGLONG kNever = ~0ull;

    // Registers as a receiver and listens until `stop`, an event that outlives the feed, is set. The
    // program's name must live as long. Throws as NotifyReceiver does.
    DetectionFeed(const char* program, HANDLE stop);
    ~DetectionFeed(); // sets `stop`
    DetectionFeed(const DetectionFeed&) = delete;
    DetectionFeed& operator=(const DetectionFeed&) = delete;

    // Waits up to a tick count. False when the time is up, or at the end when all were given out; throws
    // what ended the listening when it was not `stop`.
    bool Next(Detection& detection, ULONGLONG deadline);

    // No more will come.
    bool Ended();

    // How many were dropped since the last call because nobody asked for them in time.
    unsigned TakeLost();

private:
    void Listen();
    void Push(std::span<const BYTE> payload, DWORD size);

    const char* const m_program;
    const HANDLE m_stop;
    const KernelHandle m_changed;
    NotifyReceiver m_receiver;
    std::mutex m_lock; // of all below
    std::deque<Detection> m_waiting;
    unsigned m_lost = 0;
    bool m_ended = false;
    std::exception_ptr m_failure;
    std::thread m_thread;
};

} // namespace vlt::suite
