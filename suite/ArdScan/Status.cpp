#include "suite/ArdScan/Status.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <utility>

namespace vlt::scan
{
namespace
{

constexpr std::string_view CounterNames[] = {"scanned", "cached",       "detections", "denied",
                                             "errors",  "tooLarge",     "notListed",  "excluded",
                                             "late",    "lateInfected", "lost"};
static_assert(std::size(CounterNames) == static_cast<std::size_t>(Counter::Count_));

std::string Quoted(std::string_view text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            (result += '\\') += c;
        else if (static_cast<unsigned char>(c) < 0x20) {
            char code[8];
            std::snprintf(code, sizeof(code), "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            result += code;
        } else
            result += c;
    }
    return result + '"';
}

} // namespace

void CStatus::Scanned(NativeView path)
{
    {
        const std::lock_guard lock(m_lock);
        m_lastScanned = path;
    }
    Touch();
}

void CStatus::Touch()
{
    if (m_dirty.load(std::memory_order_relaxed) || m_dirty.exchange(true))
        return;
    const std::lock_guard lock(m_lock); // or the thread could miss it between its test and its sleep
    m_changed.notify_all();
}

void CStatus::SetMode(std::string mode, std::string reason)
{
    const std::lock_guard lock(m_lock);
    m_mode = std::move(mode);
    m_reason = std::move(reason);
    m_modeChanged = true;
    m_dirty = true;
    m_changed.notify_all();
}

void CStatus::SetFolders(std::vector<std::string> folders)
{
    {
        const std::lock_guard lock(m_lock);
        m_folders = std::move(folders);
    }
    Touch();
}

void CStatus::Start(const HostPath& file, std::function<void(const WString&)> lastScan)
{
    Stop();
    const std::lock_guard lock(m_lock);
    m_file = file;
    m_lastScan = std::move(lastScan);
    m_stop = false;
    m_thread = std::thread([this] { Run(); });
}

bool CStatus::IsOwnFile(const HostPath& path) const
{
    return !m_file.empty() &&
           (path == m_file || (path.extension() == ".new" && path.parent_path() / path.stem() == m_file));
}

void CStatus::Stop()
{
    {
        const std::lock_guard lock(m_lock);
        m_stop = true;
        m_changed.notify_all();
    }
    if (m_thread.joinable())
        m_thread.join();
}

void CStatus::Run()
{
    std::unique_lock lock(m_lock);
    for (bool first = true;; first = false) {
        m_changed.wait(lock, [&] { return m_stop || m_dirty.load() || first; });
        m_dirty = false;
        m_modeChanged = false;
        const bool stopping = m_stop;
        const HostPath scanned = std::exchange(m_lastScanned, {});
        lock.unlock();
        if (!scanned.empty() && m_lastScan)
            m_lastScan(ToWindows(scanned));
        Write(Text());
        lock.lock();
        if (stopping)
            return;
        m_changed.wait_for(lock, std::chrono::seconds(1), [&] { return m_stop || m_modeChanged; });
    }
}

std::string CStatus::Text() const
{
    const std::lock_guard lock(m_lock);
    std::string text = "{\n  \"processId\": " + std::to_string(GetCurrentProcessId()) +
                       ",\n  \"mode\": " + Quoted(m_mode) + ",\n  \"reason\": " + Quoted(m_reason) +
                       ",\n  \"folders\": [";
    for (std::size_t i = 0; i < m_folders.size(); ++i)
        text += (i ? ", " : "") + Quoted(m_folders[i]);
    text += "]";
    for (std::size_t i = 0; i < std::size(CounterNames); ++i)
        text += ",\n  \"" + std::string(CounterNames[i]) + "\": " + std::to_string(Value(static_cast<Counter>(i)));
    return text + "\n}\n";
}

// A reader sees the old state or the new one. A read-only folder costs the file, nothing else.
void CStatus::Write(const std::string& text) const
{
    if (m_file.empty())
        return;
    HostPath next = m_file;
    next += ".new";
    std::ofstream stream(next, std::ios::binary | std::ios::trunc);
    if (stream << text && stream.flush()) {
        stream.close();
        std::error_code ignored;
        std::filesystem::rename(next, m_file, ignored);
    }
}

} // namespace vlt::scan
