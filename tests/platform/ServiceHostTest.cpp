// What a service of this host has beside the manager: signals, a supervisor's readiness socket, the
// history of its reports.
#include "tests/platform/ServiceTest.h"

#include <atomic>
#include <csignal>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace vlt;
using namespace vlt::test;

namespace
{

std::atomic<SERVICE_STATUS_HANDLE> g_handle; // a control may come before the main has stored it
HANDLE g_stop;
DWORD g_control;

DWORD Report(SERVICE_STATUS_HANDLE handle, DWORD state, DWORD hint = 0, DWORD exitCode = 0)
{
    SERVICE_STATUS status{0x110, state, state == SERVICE_RUNNING ? 5u : 0u, exitCode, 0, hint ? 1u : 0u, hint};
    return SetServiceStatus(handle, &status) ? ERROR_SUCCESS : GetLastError();
}

void Handle(DWORD control)
{
    g_control = control;
    SetEvent(g_stop);
}

// Asks for its own end before it has a handler; the handler gets it while the service still starts.
void Main(DWORD, LPWSTR* argv)
{
    g_stop = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD wrong = 0;
    wrong += RegisterServiceCtrlHandlerW(argv[0], nullptr) != nullptr;
    kill(getpid(), SIGTERM);
    g_handle = RegisterServiceCtrlHandlerW(argv[0], &Handle);
    Report(g_handle, SERVICE_START_PENDING, 5000);
    wrong += WaitForSingleObject(g_stop, 20000) != WAIT_OBJECT_0;
    wrong += Report(nullptr, SERVICE_RUNNING) != ERROR_INVALID_HANDLE;
    wrong += Report(g_handle, 0) != ERROR_INVALID_DATA;
    wrong += Report(g_handle, 8) != ERROR_INVALID_DATA;
    wrong += SetServiceStatus(g_handle, nullptr) != FALSE;
    Report(g_handle, SERVICE_RUNNING);
    Report(g_handle, SERVICE_STOP_PENDING, 6000);
    Report(g_handle, SERVICE_STOPPED, 0, wrong * 100 + g_control);
}

// Answers questions until it is told to say no more; after three that it left open it ends.
void HandleUntilMute(DWORD control)
{
    static DWORD open = 0;
    if (control == 200)
        open = 1;
    if (open == 0 || control == 200)
        Report(g_handle, open == 0 ? SERVICE_RUNNING : SERVICE_PAUSED);
    else if (++open == 4)
        SetEvent(g_stop);
}

void MainUntilMute(DWORD, LPWSTR* argv)
{
    g_stop = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_handle = RegisterServiceCtrlHandlerW(argv[0], &HandleUntilMute);
    Report(g_handle, SERVICE_RUNNING);
    const DWORD wait = WaitForSingleObject(g_stop, 30000);
    Report(g_handle, SERVICE_STOPPED, 0, wait);
    Report(g_handle, SERVICE_RUNNING); // from a thread that came late: it stays stopped
}

class SupervisorSocket
{
public:
    SupervisorSocket() : m_socket(socket(AF_UNIX, SOCK_DGRAM, 0)), m_path(m_folder.HostPath("notify").string())
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    }
    ~SupervisorSocket() { close(m_socket); }

    const std::string& Path() const { return m_path; }
    std::string Next()
    {
        pollfd entry{m_socket, POLLIN, 0};
        char buffer[512];
        const ssize_t size = poll(&entry, 1, 20000) > 0 ? recv(m_socket, buffer, sizeof(buffer), 0) : -1;
        return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : "nothing";
    }
    // Forgets what has come. A full socket drops what comes next, so whoever must not miss it drains it first.
    void Drain()
    {
        char buffer[512];
        while (recv(m_socket, buffer, sizeof(buffer), MSG_DONTWAIT) > 0) {
        }
    }

private:
    TempFolder m_folder;
    int m_socket;
    std::string m_path;
};

using ServiceHost = ServiceTest;

} // namespace

VLT_CHILD(hostedService)
{
    if (args.size() > 1)
        setenv("NOTIFY_SOCKET", args[1].c_str(), 1);
    if (!args.empty())
        setenv("VLT_SERVICE_TRACE", args[0].c_str(), 1);
    WCHAR name[] = TEXT("x");
    const SERVICE_TABLE_ENTRYW table[] = {{name, &Main}, {nullptr, nullptr}};
    const bool done = StartServiceCtrlDispatcherW(table) != FALSE;
    // Over: the manager's traces are gone from the process.
    return done && !RegisterServiceCtrlHandlerW(name, &Handle) && Report(g_handle, SERVICE_RUNNING) != ERROR_SUCCESS
               ? 0
               : 1;
}

TEST_F(ServiceHost, AnEarlySignalIsAStopOnceTheServiceRuns)
{
    const TempFolder folder;
    const std::string trace = folder.HostPath("trace").string();
    SupervisorSocket supervisor;
    Install(ProgramCommand("hostedService", trace + ' ' + supervisor.Path()));
    ASSERT_EQ(ERROR_SUCCESS, Start());
    EXPECT_EQ("STATUS=starting\nEXTEND_TIMEOUT_USEC=5000000\n", supervisor.Next());
    EXPECT_EQ("STATUS=running\nREADY=1\n", supervisor.Next());
    EXPECT_EQ("STATUS=stopping\nSTOPPING=1\nEXTEND_TIMEOUT_USEC=6000000\n", supervisor.Next());
    EXPECT_EQ("STATUS=stopped\n", supervisor.Next());
    ASSERT_TRUE(Reaches(SERVICE_STOPPED));
    EXPECT_EQ(DWORD{SERVICE_CONTROL_STOP}, Query().dwWin32ExitCode) << "hundreds count what went wrong in the service";
    EXPECT_EQ("272 2 0 0 0 1 5000\n272 4 5 0 0 0 0\n272 3 0 0 0 1 6000\n272 1 0 1 0 0 0\n", ReadBytes(trace));
}

VLT_CHILD(watchedService)
{
    setenv("NOTIFY_SOCKET", args[0].c_str(), 1);
    setenv("WATCHDOG_USEC", "400000", 1);
    WCHAR name[] = TEXT("x");
    const SERVICE_TABLE_ENTRYW table[] = {{name, &MainUntilMute}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) && !std::getenv("WATCHDOG_USEC") ? 0 : 1;
}

TEST_F(ServiceHost, OnlyAServiceThatAnswersFeedsTheWatchdog)
{
    SupervisorSocket supervisor;
    Install(ProgramCommand("watchedService", supervisor.Path()));
    ASSERT_EQ(ERROR_SUCCESS, Start());
    for (int fed = 0; fed < 3;) {
        const std::string text = supervisor.Next();
        ASSERT_NE("nothing", text);
        fed += text == "WATCHDOG=1\n";
    }
    EXPECT_EQ(ERROR_SUCCESS, Control(200));
    supervisor.Drain();
    EXPECT_EQ("STATUS=stopped\nSTOPPING=1\n", supervisor.Next()) << "no food between";
    ASSERT_TRUE(Reaches(SERVICE_STOPPED));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, Query().dwWin32ExitCode);
}

TEST_F(ServiceHost, ASupervisorStartsItWithoutTheManager)
{
    Install(ProgramCommand("hostedService"));
    Child child("hostedService", {}, {{"VLT_SERVICE", ToNarrow(m_name)}});
    EXPECT_EQ(0, child.Wait(30000));
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, State());
    EXPECT_EQ(DWORD{SERVICE_CONTROL_STOP}, Query().dwWin32ExitCode);
    Child stranger("hostedService", {}, {{"VLT_SERVICE", "NotInstalled"}});
    EXPECT_EQ(1, stranger.Wait(30000));
}
