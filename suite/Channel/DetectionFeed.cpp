#include "suite/Channel/DetectionFeed.h"

#include "suite/Channel/Text.h"

#include <cstdio>
#include <cstring>

namespace vlt::suite
{
namespace
{

// An output that nobody reads costs detections and not all memory.
constexpr std::size_t Longest = 16384; // 30 MB

} // namespace

DetectionFeed::DetectionFeed(const char* program, HANDLE stop)
    : m_program(program), m_stop(stop), m_changed(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_receiver(kVirusFoundChannel, program)
{
    if (!m_changed)
        FailWith(GetLastError(), "event");
    m_thread = std::thread([this] { Listen(); });
}

DetectionFeed::~DetectionFeed()
{
    SetEvent(m_stop);
    m_thread.join();
}

void DetectionFeed::Listen()
{
    std::exception_ptr failure;
    try {
        m_receiver.Run(m_stop, [this](std::span<const BYTE> payload, DWORD size) { Push(payload, size); });
    } catch (...) {
        failure = std::current_exception();
    }
    const std::lock_guard guard(m_lock);
    m_failure = failure;
    m_ended = true;
    SetEvent(m_changed.Get());
}

void DetectionFeed::Push(std::span<const BYTE> payload, DWORD size)
{
    Detection detection;
    if (size != sizeof detection.record) {
        std::fprintf(stderr, "%s: a message of %lu bytes is not a detection\n", m_program,
                     static_cast<unsigned long>(size));
        return;
    }
    GetLocalTime(&detection.time);
    std::memcpy(&detection.record, payload.data(), sizeof detection.record);
    const std::lock_guard guard(m_lock);
    if (m_waiting.size() < Longest)
        m_waiting.push_back(detection);
    else
        ++m_lost;
    SetEvent(m_changed.Get());
}

bool DetectionFeed::Next(Detection& detection, ULONGLONG deadline)
{
    for (;;) {
        {
            const std::lock_guard guard(m_lock);
            if (!m_waiting.empty()) {
                detection = m_waiting.front();
                m_waiting.pop_front();
                return true;
            }
            if (m_failure)
                std::rethrow_exception(m_failure);
            if (m_ended)
                return false;
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline)
            return false;
        WaitForSingleObject(m_changed.Get(), deadline == kNever ? INFINITE : static_cast<DWORD>(deadline - now));
    }
}

bool DetectionFeed::Ended()
{
    const std::lock_guard guard(m_lock);
    return m_ended;
}

unsigned DetectionFeed::TakeLost()
{
    const std::lock_guard guard(m_lock);
    return std::exchange(m_lost, 0u);
}

} // namespace vlt::suite
