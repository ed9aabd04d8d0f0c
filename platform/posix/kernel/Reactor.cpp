#include "platform/posix/kernel/Reactor.h"

#include "platform/posix/core/Error.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <pthread.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace vlt::posix
{

// Never destroyed: its thread runs until the process ends.
Reactor& Reactor::Instance()
{
    static Reactor& reactor = *new Reactor;
    return reactor;
}

bool Reactor::Start() noexcept
{
    if (m_epoll >= 0)
        return true;
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) {
        SetLastErrorFromErrno();
        return false;
    }
    m_epoll = epoll;
    // The process's signals are for its own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    const auto body = [](void* reactor) -> void* {
        static_cast<Reactor*>(reactor)->Run();
        return nullptr;
    };
    const int failure = pthread_create(&thread, nullptr, body, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (failure != 0) {
        close(epoll);
        m_epoll = -1;
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    pthread_detach(thread);
    m_thread = thread;
    return true;
}

bool Reactor::Register(int descriptor, std::uint32_t events, ReactorClient& client) noexcept
{
    const std::lock_guard guard(m_lock);
    if (!Start())
        return false;
    const std::uint64_t id = ++m_lastId;
    m_entries.emplace(id, Entry{descriptor, &client});
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, descriptor, &event) == 0)
        return true;
    SetLastErrorFromErrno();
    m_entries.erase(id);
    return false;
}

void Reactor::Unregister(int descriptor) noexcept
{
    std::unique_lock guard(m_lock);
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&](const auto& entry) { return entry.second.descriptor == descriptor; });
    if (found == m_entries.end())
        return;
    const std::uint64_t id = found->first;
    m_entries.erase(found);
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, descriptor, nullptr);
    if (pthread_equal(pthread_self(), m_thread) == 0)
        m_idle.wait(guard, [&] { return m_running != id; });
}

void Reactor::Run() noexcept
{
    pthread_setname_np(pthread_self(), "vlt-reactor");
    std::array<epoll_event, 16> ready{};
    std::unique_lock guard(m_lock);
    const int epoll = m_epoll;
    while (true) {
        guard.unlock();
        const int count = epoll_wait(epoll, ready.data(), static_cast<int>(ready.size()), -1);
        guard.lock();
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = ready[static_cast<std::size_t>(i)];
            // Unregistered since the kernel reported it.
            const auto found = m_entries.find(event.data.u64);
            if (found == m_entries.end())
                continue;
            ReactorClient* const client = found->second.client;
            m_running = event.data.u64;
            guard.unlock();
            client->OnReady(event.events);
            guard.lock();
            m_running = 0;
            m_idle.notify_all();
        }
    }
}

} // namespace vlt::posix
