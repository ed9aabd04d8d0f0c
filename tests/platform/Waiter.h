// Threads that wait, for the tests of the kernel objects.
#pragma once

#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/platform/Fails.h"
#include "tests/support/Support.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#ifndef _WIN32
#include <fstream>
#endif

namespace vlt::test
{

constexpr DWORD kSoon = 20000; // a limit, not an expectation

// Can this host tell that a thread sleeps in a wait? Tests of what only a sleeper notices need it.
#ifdef _WIN32
constexpr bool kSleepersAreSeen = false;
#else
constexpr bool kSleepersAreSeen = true;
#endif

// A thread of _beginthreadex that runs a function.
class TestThread
{
public:
    explicit TestThread(std::function<unsigned()> body, unsigned flags = 0) : m_body(std::move(body))
    {
        unsigned id = 0;
        m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &Run, this, flags, &id)));
        m_id = id;
    }
    ~TestThread() { WaitForSingleObject(m_thread.Get(), kSoon); }
    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    HANDLE Handle() const { return m_thread.Get(); }
    DWORD Id() const { return m_id; }
    bool HasEnded(DWORD milliseconds = kSoon) const
    {
        return WaitForSingleObject(m_thread.Get(), milliseconds) == WAIT_OBJECT_0;
    }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        return GetExitCodeThread(m_thread.Get(), &code) ? code : 0xFFFFFFFF;
    }

    // Returns when the thread sleeps in the kernel. Only a host that can tell gives true; elsewhere
    // the caller has to repeat what only a sleeper notices.
    bool AwaitAsleep() const
    {
#ifdef _WIN32
        return false;
#else
        const std::string file = "/proc/self/task/" + std::to_string(m_id) + "/syscall";
        bool asleep = false;
        Eventually(kSoon, [&] {
            std::string call;
            std::ifstream(file) >> call;
            asleep = call == "202" || call == "449" || call == "271"; // futex, futex_waitv, ppoll
            return asleep || call.empty();                            // or the thread has ended
        });
        return asleep;
#endif
    }

private:
    static unsigned WINAPI Run(void* self)
    {
        return static_cast<TestThread*>(self)->m_body();
    }

    std::function<unsigned()> m_body;
    vlt::KernelHandle m_thread;
    DWORD m_id = 0;
};

// A thread in one wait, whose result it keeps.
class Waiter
{
public:
    explicit Waiter(std::vector<HANDLE> handles, DWORD milliseconds = INFINITE)
        : m_handles(std::move(handles)), m_thread([this, milliseconds] {
              m_result = m_handles.size() == 1 ? WaitForSingleObject(m_handles[0], milliseconds)
                                               : WaitForMultipleObjects(static_cast<DWORD>(m_handles.size()),
                                                                        m_handles.data(), FALSE, milliseconds);
              return 0u;
          })
    {
        m_thread.AwaitAsleep();
    }

    // The wait's result; WAIT_IO_COMPLETION, which no wait here gives, while it lasts.
    DWORD Result(DWORD milliseconds = kSoon) const
    {
        return m_thread.HasEnded(milliseconds) ? m_result.load() : WAIT_IO_COMPLETION;
    }

private:
    std::vector<HANDLE> m_handles;
    std::atomic<DWORD> m_result{WAIT_FAILED};
    TestThread m_thread;
};

// What a child does last: it stays until its input ends, or it is killed.
inline int StayUntilInputEnds()
{
    while (std::getchar() != EOF) {
    }
    return 0;
}

// Names of this test process alone: on Windows the name space is the whole machine's.
inline std::string NarrowName(const char* base)
{
    return "Vlt" + std::to_string(GetCurrentProcessId()) + base;
}
inline WString ObjectName(const char* base)
{
    return vlt::ToWide(NarrowName(base), CP_UTF8);
}

inline vlt::KernelHandle MakeEvent(bool manualReset, bool signaled = false)
{
    return vlt::KernelHandle(CreateEventW(nullptr, manualReset, signaled, nullptr));
}

inline bool IsSignaled(const vlt::KernelHandle& object)
{
    return WaitForSingleObject(object.Get(), 0) == WAIT_OBJECT_0;
}

} // namespace vlt::test
