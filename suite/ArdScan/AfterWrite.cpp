#include "suite/ArdScan/AfterWrite.h"

#include "suite/ArdScan/HostFile.h"

namespace vlt::scan
{

CAfterWrite::CAfterWrite(CScanContext& context) : m_context(context), m_thread([this] { Run(); }) {}

CAfterWrite::~CAfterWrite()
{
    {
        const std::lock_guard lock(m_lock);
        m_stop = true;
        m_changed.notify_all();
    }
    m_thread.join();
}

bool CAfterWrite::Add(const HostPath& path, std::uint32_t direction)
{
    const std::lock_guard lock(m_lock);
    const auto [entry, isNew] = m_directions.try_emplace(ToUtf8(path), direction);
    if (!isNew)
        return true;
    if (m_queue.size() >= MaxQueued) {
        m_directions.erase(entry);
        return false;
    }
    m_queue.push_back({path, Clock::now(), 0});
    m_changed.notify_all();
    return true;
}

void CAfterWrite::Run()
{
    CJudge judge(m_context);
    std::unique_lock lock(m_lock);
    for (;;) {
        if (m_queue.empty())
            judge.Release();
        m_changed.wait(lock, [&] { return m_stop || !m_queue.empty(); });
        if (m_stop)
            return;
        if (const auto due = m_queue.front().due; due > Clock::now()) {
            m_changed.wait_until(lock, due, [&] { return m_stop; });
            continue;
        }
        Item item = std::move(m_queue.front());
        m_queue.pop_front();
        const auto entry = m_directions.find(ToUtf8(item.path));
        const std::uint32_t direction = entry->second;
        m_directions.erase(entry); // a change from now on is a new one
        lock.unlock();
        const bool last = item.tries + 1 >= MaxTries;
        const Verdict verdict = judge.ScanPath(item.path, direction, last);
        lock.lock();
        if (verdict == Verdict::Busy && m_directions.try_emplace(ToUtf8(item.path), direction).second)
            m_queue.push_back({std::move(item.path), Clock::now() + std::chrono::milliseconds(50), item.tries + 1});
    }
}

} // namespace vlt::scan
