#include "tests/support/Host.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <semaphore.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace vlt::test::host
{
namespace
{

constexpr std::string_view kMachinePrefix = "vlt-test-";
fs::path g_machine;

// A machine is alive as long as its process holds the lock on the folder.
bool LockFolder(const fs::path& folder, int operation, int* held)
{
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat opened {
    };
    struct stat named {
    };
    // The folder may have been removed, and even made again, between the open and the lock.
    const bool locked = flock(fd, operation | LOCK_NB) == 0 && fstat(fd, &opened) == 0 &&
                        stat(folder.c_str(), &named) == 0 && opened.st_ino == named.st_ino;
    if (locked && held)
        *held = fd;
    else
        close(fd);
    return locked;
}

// Removes the machines of processes that were killed before they could do it.
void RemoveDeadMachines(const fs::path& base)
{
    std::error_code error;
    for (fs::directory_iterator entry(base, error), end; !error && entry != end; entry.increment(error)) {
        const fs::path folder = entry->path();
        int fd = -1;
        if (folder.filename().string().starts_with(kMachinePrefix) && LockFolder(folder, LOCK_EX, &fd)) {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
            close(fd);
        }
    }
}

sem_t g_dumped;

void DumpThisThread(int)
{
    const int error = errno;
    void* frames[64];
    const int count = backtrace(frames, 64);
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
    sem_post(&g_dumped);
    errno = error;
}

} // namespace

void MakeMachine()
{
    const fs::path base = fs::temp_directory_path();
    RemoveDeadMachines(base);
    for (;;) {
        std::string name = (base / (std::string(kMachinePrefix) + "XXXXXX")).string();
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::generic_category(), "mkdtemp " + name);
        int held = -1; // open until the process ends
        if (!LockFolder(name, LOCK_SH, &held))
            continue; // another process took it for a dead one
        g_machine = name;
        setenv("VLT_ROOT", name.c_str(), 1);
        return;
    }
}

void RemoveMachine()
{
    std::error_code ignored;
    fs::remove_all(g_machine, ignored);
}

fs::path ProgramPath()
{
    return fs::read_symlink("/proc/self/exe");
}

fs::path TempBase()
{
    return fs::path(std::getenv("VLT_ROOT")) / "drives" / "c" / "Temp";
}

WString TempBaseW()
{
    return TEXT("C:\\Temp");
}

bool ParentEndedWithin(unsigned long parent, unsigned milliseconds)
{
    // A parent that has ended already gives no descriptor, or that of a stranger: ask afterwards.
    const int fd = parent ? static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(parent), 0)) : -1;
    if (parent && (fd < 0 || static_cast<unsigned long>(getppid()) != parent))
        return true;
    pollfd ended{fd, POLLIN, 0};
    int result;
    do
        result = poll(&ended, 1, static_cast<int>(milliseconds));
    while (result < 0 && errno == EINTR);
    return result > 0;
}

unsigned long ProcessId()
{
    return static_cast<unsigned long>(getpid());
}

void DumpStacks()
{
    sem_init(&g_dumped, 0, 0);
    struct sigaction action {
    };
    action.sa_handler = DumpThisThread;
    action.sa_flags = SA_RESTART;
    sigaction(SIGURG, &action, nullptr);
    void* warmUp[1];
    backtrace(warmUp, 1); // loads its library now, not in the handler

    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
        const pid_t id = std::stoi(task.path().filename());
        if (id == gettid())
            continue;
        dprintf(STDERR_FILENO, "--- thread %d\n", id);
        syscall(SYS_tgkill, getpid(), id, SIGURG);
        timespec limit{};
        clock_gettime(CLOCK_REALTIME, &limit);
        limit.tv_sec += 1;
        while (sem_timedwait(&g_dumped, &limit) != 0 && errno == EINTR) {
        }
    }
}

void Exit(int code)
{
    _exit(code);
}

} // namespace vlt::test::host
