#include "platform/posix/core/Fd.h"
#include "platform/posix/core/Pointers.h"
#include "tests/support/Host.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace vlt::test::host
{
namespace
{

using posix::Fd;

class PosixProcess : public Process
{
public:
    ~PosixProcess() override
    {
        Kill();
        Wait(60000);
    }

    int Wait(unsigned milliseconds) override
    {
        if (m_code != Child::kStillRunning)
            return m_code;
        pollfd ended{m_pidfd.Get(), POLLIN, 0};
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            const int ready = poll(&ended, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
            if (ready > 0)
                break;
            if (ready == 0)
                return Child::kStillRunning;
        }
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        return m_code;
    }

    void Kill() override
    {
        if (m_code == Child::kStillRunning)
            kill(m_pid, SIGKILL);
    }

    ReadResult Read(std::string& appendTo, unsigned milliseconds) override
    {
        pollfd readable{m_output.Get(), POLLIN, 0};
        const int ready = poll(&readable, 1, static_cast<int>(milliseconds));
        if (ready == 0)
            return ReadResult::TimeOut;
        char buffer[4096];
        const ssize_t count = ready > 0 ? read(m_output.Get(), buffer, sizeof buffer) : -1;
        if (count > 0)
            appendTo.append(buffer, static_cast<std::size_t>(count));
        return count > 0 || (count < 0 && errno == EINTR) ? ReadResult::Data : ReadResult::End;
    }

    bool Write(const std::string& text) override
    {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t count = write(m_input.Get(), text.data() + done, text.size() - done);
            if (count < 0 && errno != EINTR)
                return false;
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return true;
    }

    void CloseInput() override { m_input = Fd(); }
    unsigned long Id() const override { return static_cast<unsigned long>(m_pid); }

    pid_t m_pid = -1;
    int m_code = Child::kStillRunning;
    Fd m_pidfd;
    Fd m_input;
    Fd m_output;
};

// The environment of the test with additions, as execve takes it.
std::vector<std::string> MergedEnvironment(const Child::Environment& additions)
{
    std::vector<std::string> merged;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        bool replaced = false;
        for (const auto& [name, value] : additions)
            replaced = replaced || text.starts_with(name + "=");
        if (!replaced)
            merged.push_back(text);
    }
    for (const auto& [name, value] : additions)
        merged.push_back(name + "=" + value);
    return merged;
}

} // namespace

std::unique_ptr<Process> StartProcess(const std::filesystem::path& program, const std::vector<std::string>& args,
                                      const Child::Environment& environment)
{
    std::signal(SIGPIPE, SIG_IGN);
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    auto process = std::make_unique<PosixProcess>();
    const Fd childIn(in[0]);
    process->m_input = Fd(in[1]);
    if (pipe2(out, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const Fd childOut(out[1]);
    process->m_output = Fd(out[0]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childIn.Get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOut.Get(), STDOUT_FILENO);
    // A child starts with the signal state of a shell's, whatever the test has done to its own.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t pipeOnly;
    sigemptyset(&none);
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &pipeOnly);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> argTexts{program.string()};
    argTexts.insert(argTexts.end(), args.begin(), args.end());
    std::vector<std::string> environmentTexts = MergedEnvironment(environment);
    const int error = posix_spawn(&process->m_pid, program.c_str(), &actions, &attributes,
                                  posix::Pointers(argTexts).data(), posix::Pointers(environmentTexts).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        process->m_code = 127;
        throw std::system_error(error, std::generic_category(), "cannot start " + program.string());
    }
    process->m_pidfd = Fd(static_cast<int>(syscall(SYS_pidfd_open, process->m_pid, 0)));
    if (process->m_pidfd.Get() < 0)
        throw std::system_error(errno, std::generic_category(), "pidfd_open");
    return process;
}

} // namespace vlt::test::host
