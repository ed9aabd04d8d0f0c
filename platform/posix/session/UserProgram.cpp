#include "platform/posix/session/UserProgram.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/Pointers.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

// Everything that the child needs, made before the fork: it may not allocate.
struct Start {
    const char* program;
    char* const* arguments;
    char* const* environment;
    const Credentials& who;
    bool changesUser;
    dev_t terminal;
    char terminalPath[32];
    int report; // gets errno when the program cannot be started
};

// The device's file. The kernel's numbers of pseudo terminals and of the console's are fixed.
dev_t NameTerminal(unsigned number, char (&path)[32])
{
    const unsigned minor = (number & 0xFF) | ((number >> 12) & 0xFFF00), major = (number >> 8) & 0xFFF;
    path[0] = '\0';
    if (major >= 136 && major < 144)
        std::snprintf(path, sizeof path, "/dev/pts/%u", minor + 256 * (major - 136));
    else if (major == 4 && minor > 0)
        std::snprintf(path, sizeof path, minor < 64 ? "/dev/tty%u" : "/dev/ttyS%u", minor < 64 ? minor : minor - 64);
    return makedev(major, minor);
}

bool SameGroups(const std::vector<gid_t>& groups)
{
    std::vector<gid_t> own(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    return getgroups(static_cast<int>(own.size()), own.data()) == static_cast<int>(own.size()) && own == groups;
}

bool IsOwn(const Credentials& who)
{
    return who.user == getuid() && who.user == geteuid() && who.group == getgid() && who.group == getegid() &&
           SameGroups(who.groups);
}

// From here to exec only system calls that are safe after the fork of a threaded process. The library's
// own setuid would have every thread do it, and there is one.
bool TakeIdentity(const Credentials& who) noexcept
{
    const auto group = static_cast<unsigned>(who.group), user = static_cast<unsigned>(who.user);
    return syscall(SYS_setgroups, who.groups.size(), who.groups.data()) == 0 &&
           syscall(SYS_setresgid, group, group, group) == 0 && syscall(SYS_setresuid, user, user, user) == 0;
}

// The user's own right to open the terminal decides, and that it is the one that was meant.
int OpenTerminal(const Start& start) noexcept
{
    const int file = start.terminalPath[0] ? open(start.terminalPath, O_WRONLY | O_NOCTTY) : -1;
    struct stat info {
    };
    if (file >= 0 && fstat(file, &info) == 0 && S_ISCHR(info.st_mode) && info.st_rdev == start.terminal)
        return file;
    return open("/dev/null", O_WRONLY);
}

bool SetStreams(const Start& start) noexcept
{
    const int input = open("/dev/null", O_RDONLY);
    const int output = OpenTerminal(start);
    return input >= 0 && output >= 0 && dup2(input, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
           dup2(output, STDERR_FILENO) >= 0;
}

void ResetSignals() noexcept
{
    struct sigaction usual {
    };
    usual.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        sigaction(signal, &usual, nullptr); // fails for the few that cannot be changed
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void Become(const Start& start) noexcept
{
    const sched_param priority{};
    setsid();
    umask(022);
    if (sched_getscheduler(0) == SCHED_IDLE)
        sched_setscheduler(0, SCHED_OTHER, &priority);
    ResetSignals();
    if (chdir("/") == 0 && (!start.changesUser || TakeIdentity(start.who)) && SetStreams(start)) {
        close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
        execve(start.program, start.arguments, start.environment);
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(start.report, &error, sizeof error);
    _exit(127);
}

// Keeps this process's handlers from running in the child.
class AllSignalsBlocked
{
public:
    AllSignalsBlocked() noexcept
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

} // namespace

pid_t StartForUser(const TokenObject& token, Program program, std::vector<std::string> environment)
{
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) {
        SetLastErrorFromErrno();
        return -1;
    }
    const Fd answer(pipe[0]);
    Fd report(fcntl(pipe[1], F_DUPFD_CLOEXEC, STDERR_FILENO + 1)); // the child's streams take the first three
    close(pipe[1]);
    const std::vector<char*> arguments = Pointers(program.arguments), variables = Pointers(environment);
    Start start{program.path.c_str(), arguments.data(), variables.data(), token.Who(), !IsOwn(token.Who()), 0, {},
                report.Get()};
    start.terminal = NameTerminal(token.Terminal(), start.terminalPath);
    pid_t id = -1;
    {
        const AllSignalsBlocked blocked;
        id = fork();
        if (id == 0)
            Become(start);
    }
    if (id < 0) {
        SetLastErrorFromErrno();
        return -1;
    }
    report = Fd();
    int error = 0;
    ssize_t size = 0;
    while ((size = read(answer.Get(), &error, sizeof error)) < 0 && errno == EINTR) {
    }
    if (size <= 0)
        return id; // the pipe's end went with exec
    AbandonProgram(id);
    SetLastError(error == EPERM ? ERROR_PRIVILEGE_NOT_HELD : StartError(error, program.path));
    return -1;
}

} // namespace vlt::posix
