// One event set and waited for without contention beside a bare atomic, and the wake-up of another
// thread and of another process beside a bare futex. A wake-up is half of a round trip.
#include "bench/Futex.h"
#include "bench/Measure.h"
#include "platform/Unique.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace
{

constexpr WCHAR PingName[] = TEXT("bench ping");
constexpr WCHAR PongName[] = TEXT("bench pong");
constexpr WCHAR QuitName[] = TEXT("bench quit");

struct Shared {
    bench::BareEvent ping;
    bench::BareEvent pong;
    std::atomic<bool> quit{false};
};

vlt::KernelHandle AutoEvent(const WCHAR* name = nullptr)
{
    vlt::KernelHandle event(CreateEventW(nullptr, FALSE, FALSE, name));
    if (!event)
        std::abort();
    return event;
}

void Uncontended()
{
    const vlt::KernelHandle event = AutoEvent();
    std::atomic<std::uint32_t> word{0};
    bench::Compare({{"SetEvent + WaitForSingleObject",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i) {
                             SetEvent(event.Get());
                             WaitForSingleObject(event.Get(), INFINITE);
                         }
                     }},
                    {"atomic set + take",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count; ++i) {
                             word.exchange(1);
                             std::uint32_t set = 1;
                             word.compare_exchange_strong(set, 0);
                         }
                     }}},
                   {5.0}, {.operations = 1000000});
}

// Runs round trips against an answering side that is already waiting.
void Trips(const vlt::KernelHandle& ping, const vlt::KernelHandle& pong, bench::BareEvent& barePing,
           bench::BareEvent& barePong, bool shared, const char* what)
{
    bench::Compare({{std::string("wake-up of another ") + what,
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count / 2; ++i) {
                             SetEvent(ping.Get());
                             WaitForSingleObject(pong.Get(), INFINITE);
                         }
                     }},
                    {"bare futex",
                     [&](std::size_t count) {
                         for (std::size_t i = 0; i < count / 2; ++i) {
                             barePing.Set(shared);
                             barePong.Wait(shared);
                         }
                     }}},
                   {1.1}, {.operations = 20000});
}

void OtherThread()
{
    const vlt::KernelHandle ping = AutoEvent();
    const vlt::KernelHandle pong = AutoEvent();
    Shared shared;
    std::thread answers([&] {
        while (WaitForSingleObject(ping.Get(), INFINITE) == WAIT_OBJECT_0 && !shared.quit)
            SetEvent(pong.Get());
    });
    std::thread bareAnswers([&] {
        for (;;) {
            shared.ping.Wait(false);
            if (shared.quit)
                return;
            shared.pong.Set(false);
        }
    });
    Trips(ping, pong, shared.ping, shared.pong, false, "thread");
    shared.quit = true;
    SetEvent(ping.Get());
    shared.ping.Set(false);
    answers.join();
    bareAnswers.join();
}

Shared* MapShared(int file)
{
    void* const view = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (view == MAP_FAILED)
        std::abort();
    return static_cast<Shared*>(view);
}

pid_t StartSelf(const char* role, int file)
{
    std::string number = std::to_string(file);
    std::string name = role;
    char program[] = "/proc/self/exe";
    char* arguments[] = {program, name.data(), number.data(), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0)
        std::abort();
    return child;
}

int AnswerEvents()
{
    const vlt::KernelHandle ping = AutoEvent(PingName);
    const vlt::KernelHandle pong = AutoEvent(PongName);
    const vlt::KernelHandle quit(OpenEventW(EVENT_ALL_ACCESS, FALSE, QuitName));
    while (WaitForSingleObject(ping.Get(), INFINITE) == WAIT_OBJECT_0 &&
           WaitForSingleObject(quit.Get(), 0) == WAIT_TIMEOUT)
        SetEvent(pong.Get());
    return 0;
}

int AnswerBare(int file)
{
    Shared* const shared = MapShared(file);
    for (;;) {
        shared->ping.Wait(true);
        if (shared->quit)
            return 0;
        shared->pong.Set(true);
    }
}

void OtherProcess()
{
    const vlt::KernelHandle ping = AutoEvent(PingName);
    const vlt::KernelHandle pong = AutoEvent(PongName);
    const vlt::KernelHandle quit(CreateEventW(nullptr, TRUE, FALSE, QuitName));
    const int file = memfd_create("bench", 0); // inherited by the children
    if (file < 0 || ftruncate(file, sizeof(Shared)) != 0)
        std::abort();
    Shared* const shared = new (MapShared(file)) Shared;
    const pid_t children[] = {StartSelf("answer-events", file), StartSelf("answer-bare", file)};
    Trips(ping, pong, shared->ping, shared->pong, true, "process");
    SetEvent(quit.Get());
    SetEvent(ping.Get());
    shared->quit = true;
    shared->ping.Set(true);
    for (const pid_t child : children)
        waitpid(child, nullptr, 0);
    close(file);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::string(argv[1]) == "answer-events")
        return AnswerEvents();
    if (argc == 3 && std::string(argv[1]) == "answer-bare")
        return AnswerBare(std::atoi(argv[2]));
    bench::Title("Events");
    Uncontended();
    OtherThread();
    OtherProcess();
}
