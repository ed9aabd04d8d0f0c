// Waits on several objects beside the wait on one, when the last one is signalled already and as a wake-up
// between threads; then a named event made, or opened, and closed beside the bare system calls that any
// file with a lock in a mapping needs.
#include "bench/Futex.h"
#include "bench/Measure.h"
#include "platform/Unique.h"

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

constexpr std::size_t ObjectBytes = 4096;

// Events of which the last is the one that is set, and a wait on all of them.
class Group
{
public:
    Group(std::size_t count, bool named)
    {
        static int number = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::string name = "bench wait " + std::to_string(number++);
            m_events.emplace_back(CreateEventA(nullptr, FALSE, FALSE, named ? name.c_str() : nullptr));
            if (!m_events.back())
                std::abort();
            m_handles.push_back(m_events.back().Get());
        }
    }

    void Set() { SetEvent(m_handles.back()); }
    void Wait()
    {
        const auto count = static_cast<DWORD>(m_handles.size());
        const DWORD result = count == 1 ? WaitForSingleObject(m_handles[0], INFINITE)
                                        : WaitForMultipleObjects(count, m_handles.data(), FALSE, INFINITE);
        if (result != WAIT_OBJECT_0 + count - 1)
            std::abort();
    }

private:
    std::vector<vlt::KernelHandle> m_events;
    std::vector<HANDLE> m_handles;
};

// The same with nothing but futex words.
class BareGroup
{
public:
    BareGroup(std::size_t count, bool) : m_words(count) {}

    void Set()
    {
        m_words.back().store(1);
        syscall(SYS_futex, &m_words.back(), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void Wait()
    {
        while (m_words.back().exchange(0) == 0)
            bench::WaitMany(m_words.data(), m_words.size());
    }

private:
    std::vector<std::atomic<std::uint32_t>> m_words;
};

// Two groups and a thread that answers the first with the second.
template <typename Group>
class Answered
{
public:
    Answered(std::size_t count, bool named) : m_ping(count, named), m_pong(count, named), m_thread([this] { Answer(); })
    {
    }
    ~Answered()
    {
        m_quit = true;
        m_ping.Set();
        m_thread.join();
    }

    void Trip()
    {
        m_ping.Set();
        m_pong.Wait();
    }

private:
    void Answer()
    {
        for (m_ping.Wait(); !m_quit; m_ping.Wait())
            m_pong.Set();
    }

    Group m_ping;
    Group m_pong;
    std::atomic<bool> m_quit{false};
    std::thread m_thread;
};

void Signalled(std::size_t count)
{
    const auto body = [](Group& group) {
        return [&group](std::size_t operations) {
            for (std::size_t i = 0; i < operations; ++i) {
                group.Set();
                group.Wait();
            }
        };
    };
    Group several(count, false);
    Group one(1, false);
    bench::Compare({{"wait on " + std::to_string(count) + ", the last set", body(several)}, {"wait on 1", body(one)}},
                   {}, {.operations = 100000});
}

void WakeUp(std::size_t count, bool named)
{
    const auto body = [](auto& answered) {
        return [&answered](std::size_t operations) {
            for (std::size_t i = 0; i < operations / 2; ++i)
                answered.Trip();
        };
    };
    Answered<Group> several(count, named);
    Answered<Group> one(1, named);
    Answered<BareGroup> bare(count, named);
    bench::Compare({{"wake-up from " + std::to_string(count) + (named ? " named" : ""), body(several)},
                    {"wake-up from 1", body(one)},
                    {"futex_waitv", body(bare)}},
                   {count == 5 ? 1.2 : 0}, {.operations = 20000});
}

// What cannot be left out: a file, its size, a mapping and a lock that goes with the process.
void BareOpenAndClose(const std::string& path, int flags)
{
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC | flags, 0600);
    if (file < 0 || ((flags & O_CREAT) != 0 && ftruncate(file, ObjectBytes) != 0) || flock(file, LOCK_SH) != 0)
        std::abort();
    void* const memory = mmap(nullptr, ObjectBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    static_cast<volatile char*>(memory)[0] = 1;
    munmap(memory, ObjectBytes);
    if ((flags & O_CREAT) != 0)
        unlink(path.c_str());
    close(file);
}

void Names()
{
    const char* const root = std::getenv("VLT_ROOT");
    const std::string path = std::string(root ? root : "/tmp") + "/bench object";
    const WCHAR* const name = TEXT("bench object");
    bench::Compare({{"named event: create + close",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i)
                             vlt::KernelHandle(CreateEventW(nullptr, FALSE, FALSE, name));
                     }},
                    {"open O_CREAT .. unlink + close",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i)
                             BareOpenAndClose(path, O_CREAT | O_EXCL);
                     }}},
                   {}, {.operations = 2000});
    const vlt::KernelHandle held(CreateEventW(nullptr, FALSE, FALSE, name));
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, ObjectBytes) != 0)
        std::abort();
    bench::Compare({{"named event: open + close",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i)
                             vlt::KernelHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, name));
                     }},
                    {"open .. close",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i)
                             BareOpenAndClose(path, 0);
                     }}},
                   {}, {.operations = 2000});
    close(file);
    unlink(path.c_str());
}

} // namespace

int main()
{
    bench::Title("Waits and names");
    for (const std::size_t count : {2u, 5u, 64u})
        Signalled(count);
    for (const std::size_t count : {2u, 5u, 64u})
        WakeUp(count, false);
    WakeUp(5, true);
    Names();
}
