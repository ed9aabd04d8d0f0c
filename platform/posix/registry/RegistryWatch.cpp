#include "platform/posix/registry/RegistryWatch.h"

#include "platform/posix/kernel/Reactor.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <unordered_map>

namespace vlt::posix::registry
{

class WatchTable final : ReactorClient
{
public:
    // Never destroyed: the reactor's thread may still run while the process exits.
    static WatchTable& The()
    {
        static WatchTable& table = *new WatchTable;
        return table;
    }

    std::shared_ptr<RegistryWatch> Open(int folder)
    {
        // A value made or replaced is moved in, one set in place is modified: one event each.
        constexpr std::uint32_t Mask = IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE |
                                       IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
        char path[32];
        std::snprintf(path, sizeof(path), "/proc/self/fd/%d", folder);
        const std::lock_guard guard(m_lock);
        const int number = m_fd >= 0 ? inotify_add_watch(m_fd, path, Mask) : -1;
        if (number < 0)
            return nullptr;
        // What happened before belongs to the key's other handles only.
        Drain();
        std::shared_ptr<RegistryWatch> watch(new RegistryWatch(number));
        m_watches.emplace(number, watch.get());
        return watch;
    }

    LSTATUS Arm(RegistryWatch& watch, HANDLE event)
    {
        HeldEvent held(event);
        if (!held)
            return static_cast<LSTATUS>(GetLastError());
        const std::lock_guard guard(m_lock);
        Drain();
        if (watch.m_closed)
            return ERROR_INVALID_HANDLE;
        watch.m_armed.push_back(std::move(held));
        if (watch.m_changed)
            watch.Changed();
        return ERROR_SUCCESS;
    }

    void Close(RegistryWatch& watch) noexcept
    {
        const std::lock_guard guard(m_lock);
        if (std::exchange(watch.m_closed, true))
            return;
        watch.Fire();
        const auto [first, last] = m_watches.equal_range(watch.m_number);
        const bool only = std::next(first) == last;
        m_watches.erase(std::find_if(first, last, [&](const auto& entry) { return entry.second == &watch; }));
        if (only)
            inotify_rm_watch(m_fd, watch.m_number);
    }

private:
    WatchTable() : m_fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        if (m_fd >= 0)
            Reactor::Instance().Register(m_fd, EPOLLIN, *this);
    }

    void OnReady(std::uint32_t) noexcept override
    {
        const std::lock_guard guard(m_lock);
        Drain();
    }

    void Drain() noexcept
    {
        alignas(inotify_event) char buffer[4096];
        for (;;) {
            const ssize_t size = read(m_fd, buffer, sizeof(buffer));
            if (size <= 0)
                return;
            for (const char* at = buffer; at < buffer + size;) {
                const auto* const event = reinterpret_cast<const inotify_event*>(at);
                Dispatch(*event);
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

    void Dispatch(const inotify_event& event) noexcept
    {
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            for (const auto& [number, watch] : m_watches)
                watch->Changed();
            return;
        }
        const bool isValue = event.len != 0 && event.name[0] == 'v';
        if (!isValue && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) == 0)
            return;
        const auto [first, last] = m_watches.equal_range(event.wd);
        for (auto it = first; it != last; ++it)
            it->second->Changed();
    }

    const int m_fd;
    std::mutex m_lock; // of all watches
    std::unordered_multimap<int, RegistryWatch*> m_watches;
};

std::shared_ptr<RegistryWatch> RegistryWatch::Open(int folder)
{
    return WatchTable::The().Open(folder);
}

RegistryWatch::~RegistryWatch()
{
    Close();
}

LSTATUS RegistryWatch::Arm(HANDLE event)
{
    return WatchTable::The().Arm(*this, event);
}

void RegistryWatch::Close() noexcept
{
    WatchTable::The().Close(*this);
}

void RegistryWatch::Changed() noexcept
{
    m_changed = m_armed.empty();
    Fire();
}

void RegistryWatch::Fire() noexcept
{
    for (HeldEvent& event : m_armed)
        event.Signal();
    m_armed.clear();
}

} // namespace vlt::posix::registry
