// From the change of a setting to the call by which the scan library hears of it, in another process that watches the
// key; beside a process that watches a file with inotify, and one that waits for a futex.
#include "bench/Futex.h"
#include "bench/Measure.h"
#include "bench/ServiceFixture.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace
{

constexpr WCHAR KeyName[] = TEXT("Software\\Veltrano\\Ardentis\\15\\RealTimeScan");

struct Shared {
    std::atomic<std::uint32_t> count; // of what has been heard
    bench::BareEvent question;
};

void Await(std::atomic<std::uint32_t>& count, std::uint32_t old)
{
    while (count.load() == old)
        syscall(SYS_futex, &count, FUTEX_WAIT, old, nullptr, nullptr, 0);
}

void Tell(std::atomic<std::uint32_t>& count)
{
    count.fetch_add(1);
    syscall(SYS_futex, &count, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

Shared* MapNew(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0 || ftruncate(file, sizeof(Shared)) != 0)
        std::abort();
    void* const view = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (view == MAP_FAILED)
        std::abort();
    return new (view) Shared;
}

template <typename Hear>
pid_t Listener(Hear hear)
{
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;)
            hear();
    }
    return child;
}

void End(pid_t child)
{
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

} // namespace

int main()
{
    const std::string root = std::getenv("VLT_ROOT");
    Shared* const heard = MapNew(root + "/configurations");
    Shared* const watched = MapNew(root + "/watched");
    Shared* const asked = MapNew(root + "/asked");
    const std::string path = root + "/value";
    const int value = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    const int notify = inotify_init1(IN_CLOEXEC);
    if (value < 0 || inotify_add_watch(notify, path.c_str(), IN_MODIFY) < 0)
        std::abort();
    const pid_t watcher = Listener([&] {
        char buffer[4096];
        if (read(notify, buffer, sizeof buffer) > 0)
            Tell(watched->count);
    });
    const pid_t waiter = Listener([&] {
        asked->question.Wait(true);
        Tell(asked->count);
    });
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, KeyName, 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr, &key, nullptr) != 0)
        std::abort();
    const vlt::RegKey owner(key);
    bench::ServiceFixture service(root, "bench/ArdScan.dll");
    service.Start();
    const auto repeat = [](auto action) -> bench::Body {
        return [action](std::size_t count) {
            for (std::size_t i = 0; i < count; ++i)
                action(static_cast<DWORD>(i));
        };
    };
    bench::Title("A setting is changed");
    bench::Compare({{"to ASSetConfigW", repeat([&](DWORD number) {
                         const std::uint32_t old = heard->count.load();
                         if (RegSetValueExW(key, TEXT("ZipScan"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                                            sizeof number) != 0)
                             std::abort();
                         Await(heard->count, old);
                     })},
                    {"inotify on a file", repeat([&](DWORD number) {
                         const std::uint32_t old = watched->count.load();
                         if (pwrite(value, &number, sizeof number, 0) != sizeof number)
                             std::abort();
                         Await(watched->count, old);
                     })},
                    {"bare futex", repeat([&](DWORD) {
                         const std::uint32_t old = asked->count.load();
                         asked->question.Set(true);
                         Await(asked->count, old);
                     })}},
                   {}, {.operations = 200, .rounds = 11});
    End(watcher);
    End(waiter);
}
