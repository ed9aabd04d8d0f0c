// One thread that watches file descriptors for the whole process, started at the first use.
#pragma once

#include "platform/posix/win32/base.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace vlt::posix
{

// Called on the reactor's thread, one call at a time in the whole process. It must not block for
// long and must not throw; it may set events, and may call Register and Unregister.
class ReactorClient
{
public:
    virtual void OnReady(std::uint32_t epollEvents) noexcept = 0;

protected:
    ~ReactorClient() = default;
};

class Reactor
{
public:
    static Reactor& Instance();

    // Calls the client whenever the descriptor has one of the events (EPOLLIN …; EPOLLONESHOT and
    // EPOLLET as epoll defines them; otherwise OnReady must drain the descriptor). The descriptor
    // stays the caller's and must stay open until Unregister. False with the last error set.
    bool Register(int descriptor, std::uint32_t events, ReactorClient& client) noexcept;

    // After this returns the client is not called any more. Waits for a call in progress, unless it
    // is made from that call. Does nothing for a descriptor that is not registered.
    void Unregister(int descriptor) noexcept;

private:
    Reactor() noexcept = default;
    bool Start() noexcept;
    void Run() noexcept;

    struct Entry {
        int descriptor;
        ReactorClient* client;
    };

    std::mutex m_lock; // of all below
    std::condition_variable m_idle;
    int m_epoll = -1;
    std::uint64_t m_lastId = 0;
    std::unordered_map<std::uint64_t, Entry> m_entries; // ids are never used twice, descriptors are
    std::uint64_t m_running = 0;
    unsigned long m_thread = 0; // pthread_t
};

} // namespace vlt::posix
