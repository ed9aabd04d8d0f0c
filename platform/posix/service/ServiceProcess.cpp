#include "platform/posix/service/ServiceProcess.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Pointers.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"
#include "platform/posix/kernel/CommandLine.h"
#include "platform/posix/service/ControlChannel.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vlt::posix::service
{
namespace
{

using Texts = std::vector<std::string>;

// The host path of the configured program; empty when there is no such file.
std::string FindProgram(WStringView commandLine, Texts& arguments)
{
    for (const CommandReading& reading : ReadCommandLine(commandLine)) {
        for (const char* const extension : {"", ".exe"}) {
            struct stat info {
            };
            const std::string path = HostPathFromWindows(reading.program) + extension;
            if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
                continue;
            arguments = {Utf8FromUtf16(reading.program)};
            for (const std::u16string& argument : SplitArguments(reading.rest))
                arguments.push_back(Utf8FromUtf16(argument));
            return path;
        }
    }
    return {};
}

Texts Environment(const ServiceConfig& config, int channel)
{
    Texts environment;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view text(*entry);
        // The readiness socket, if there is one, is the starter's.
        if (!text.starts_with("VLT_SERVICE=") && !text.starts_with("VLT_SERVICE_CHANNEL=") &&
            !text.starts_with("VLT_ROOT=") && !text.starts_with("NOTIFY_SOCKET="))
            environment.emplace_back(text);
    }
    environment.push_back("VLT_SERVICE=" + Utf8FromUtf16(config.name));
    environment.push_back("VLT_ROOT=" + MachineRoot());
    environment.push_back("VLT_SERVICE_CHANNEL=" + std::to_string(channel));
    return environment;
}

// Only calls that are safe between fork and exec of a threaded process. Ends in exec.
[[noreturn]] void Become(int channel, const char* program, char* const* arguments, char* const* environment)
{
    setsid();
    const pid_t child = _Fork();
    if (child != 0)
        _exit(child < 0 ? 1 : 0); // the service is nobody's child: its starter need not wait for it
    ChannelReport report{ChannelReport::ProcessId, static_cast<std::uint32_t>(getpid())};
    [[maybe_unused]] ssize_t sent = send(channel, &report, sizeof(report), MSG_NOSIGNAL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGPWR})
        signal(number, SIG_DFL);
    fcntl(channel, F_SETFD, 0);
    // Whoever reads the starter's output to its end, or waits for a lock that it holds, must not wait
    // for the service. Standard error stays, for the last words of a run-time library.
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null >= 0) {
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
    }
    if (channel > 3)
        close_range(3, static_cast<unsigned>(channel - 1), 0);
    close_range(static_cast<unsigned>(channel + 1), ~0U, 0);
    execve(program, arguments, environment);
    report = {ChannelReport::ExecFailed, static_cast<std::uint32_t>(errno)};
    sent = send(channel, &report, sizeof(report), MSG_NOSIGNAL);
    _exit(127);
}

// Follows the new process until it has connected or will not.
DWORD WaitForConnection(int channel)
{
    pid_t process = 0;
    while (WaitReadable(channel, ControlWait)) {
        ChannelReport report{};
        if (recv(channel, &report, sizeof(report), 0) != sizeof(report))
            return ERROR_SERVICE_REQUEST_TIMEOUT; // it has ended
        if (report.kind == ChannelReport::Connected)
            return ERROR_SUCCESS;
        if (report.kind == ChannelReport::ExecFailed)
            return ErrorFromErrno(static_cast<int>(report.value));
        process = static_cast<pid_t>(report.value);
    }
    if (process > 0)
        kill(process, SIGKILL);
    return ERROR_SERVICE_REQUEST_TIMEOUT;
}

} // namespace

DWORD StartProcess(const ServiceConfig& config, const std::u16string& packedArguments)
{
    Texts arguments;
    const std::string program = FindProgram(config.path, arguments);
    if (program.empty())
        return ERROR_FILE_NOT_FOUND;
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0)
        return ErrorFromErrno(errno);
    const Fd ours(sockets[0]);
    Fd theirs(sockets[1]);
    Texts environment = Environment(config, theirs.Get());
    const std::vector<char*> argumentList = Pointers(arguments);
    const std::vector<char*> environmentList = Pointers(environment);
    if (send(ours.Get(), packedArguments.data(), packedArguments.size() * sizeof(WCHAR), MSG_NOSIGNAL) < 0)
        return ErrorFromErrno(errno);
    const pid_t middle = fork();
    if (middle < 0)
        return ErrorFromErrno(errno);
    if (middle == 0)
        Become(theirs.Get(), program.c_str(), argumentList.data(), environmentList.data());
    theirs = Fd();
    int status = 0;
    while (waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
    return WaitForConnection(ours.Get());
}

} // namespace vlt::posix::service
