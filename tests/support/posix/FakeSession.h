// A login of an account on a pseudo terminal, as getty or sshd makes one. Needs root.
#pragma once

#include "tests/support/Support.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace vlt::test
{

class FakeSession
{
public:
    static constexpr unsigned kUser = 65534, kGroup = 65534, kOtherGroup = 100;

    // The shell does nothing. With `mixed` it is not wholly the user's: root can come back.
    explicit FakeSession(bool mixed = false)
    {
        m_terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
        if (geteuid() != 0 || m_terminal < 0 || grantpt(m_terminal) != 0 || unlockpt(m_terminal) != 0)
            return;
        const std::string name = ptsname(m_terminal);
        if (chown(name.c_str(), kUser, kGroup) != 0)
            return;
        m_shell = fork();
        if (m_shell == 0)
            RunShell(name.c_str(), mixed);
        Eventually(20000, [&] { return IsReady(mixed) || waitpid(m_shell, nullptr, WNOHANG) != 0; });
        m_works = IsReady(mixed);
    }
    ~FakeSession()
    {
        if (m_shell > 0) {
            kill(m_shell, SIGKILL);
            waitpid(m_shell, nullptr, 0);
        }
        close(m_terminal);
    }
    FakeSession(const FakeSession&) = delete;
    FakeSession& operator=(const FakeSession&) = delete;

    // False on a host that does not let a test make logins.
    bool Works() const { return m_works; }
    unsigned Shell() const { return static_cast<unsigned>(m_shell); }
    unsigned Number() const { return static_cast<unsigned>(std::strtoul(Line("sessionid").c_str(), nullptr, 10)); }

    // Waits until the text was written to the terminal.
    bool Shows(const std::string& text, unsigned milliseconds = 20000)
    {
        return Eventually(milliseconds, [&] {
            char part[4096];
            for (ssize_t size; (size = read(m_terminal, part, sizeof part)) > 0;)
                m_output.append(part, static_cast<std::size_t>(size));
            return m_output.find(text) != std::string::npos;
        });
    }
    const std::string& Output() const { return m_output; }

private:
    [[noreturn]] static void RunShell(const char* terminal, bool mixed)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int login = open("/proc/self/loginuid", O_WRONLY | O_CLOEXEC);
        if (login < 0 || write(login, "65534", 5) != 5 || setsid() < 0)
            _exit(1);
        const int file = open(terminal, O_RDWR);
        const gid_t other = kOtherGroup;
        if (file < 0 || ioctl(file, TIOCSCTTY, 0) != 0 || syscall(SYS_setgroups, 1, &other) != 0 ||
            syscall(SYS_setresgid, kGroup, kGroup, kGroup) != 0 ||
            syscall(SYS_setresuid, kUser, kUser, mixed ? 0 : kUser) != 0)
            _exit(1);
        for (;;)
            pause();
    }

    bool IsReady(bool mixed) const
    {
        std::ifstream status("/proc/" + std::to_string(m_shell) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("Uid:"))
                return line.find(mixed ? "65534\t65534\t0" : "65534\t65534\t65534") != std::string::npos;
        }
        return false;
    }
    std::string Line(const char* file) const
    {
        std::ifstream stream("/proc/" + std::to_string(m_shell) + '/' + file);
        std::string line;
        std::getline(stream, line);
        return line;
    }

    int m_terminal = -1;
    pid_t m_shell = -1;
    bool m_works = false;
    std::string m_output;
};

// Has the running test run again where no processes but its own are seen, so that no login of another test or
// user can be met; skips where that is not allowed. False in that second run.
inline bool RanAmongOwnProcesses()
{
    constexpr const char* kApart = "VLT_TEST_APART";
    if (std::getenv(kApart))
        return false;
    const auto apart = [&](std::vector<std::string> command) {
        command.insert(command.begin(), {"--fork", "--pid", "--mount-proc", "--kill-child"});
        return Child::Program("/usr/bin/unshare", std::move(command), {{kApart, "1"}});
    };
    if (apart({"true"}).Wait(60000) != 0) {
        [] { GTEST_SKIP() << "not allowed to make a process namespace"; }();
        return true;
    }
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    Child child = apart({std::filesystem::read_symlink("/proc/self/exe").string(),
                         std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name()});
    std::string output;
    while (child.Wait(0) == Child::kStillRunning)
        output += child.ReadLine(60000) + '\n';
    EXPECT_EQ(child.Wait(0), 0) << output;
    return true;
}

} // namespace vlt::test
