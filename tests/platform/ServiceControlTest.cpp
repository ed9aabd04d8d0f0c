#include "tests/platform/ServiceTest.h"

#include <atomic>

using namespace vlt;
using namespace vlt::test;

using ServiceControl = ServiceTest;

namespace
{

// The service: what it sees ends up in the service-specific exit code, which the manager keeps.
SERVICE_STATUS_HANDLE g_handle;
HANDLE g_stop;
DWORD g_seen;
std::atomic<DWORD> g_handlerThread;
DWORD g_mainThread;
DWORD g_dispatcherThread;

void Report(DWORD state, DWORD accepted, DWORD specific = 0)
{
    const bool pending = state != SERVICE_RUNNING && state != SERVICE_STOPPED && state != SERVICE_PAUSED;
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS,
                          state,
                          accepted,
                          specific ? DWORD{ERROR_SERVICE_SPECIFIC_ERROR} : 0u,
                          specific,
                          pending ? 1u : 0u,
                          pending ? 3000u : 0u};
    SetServiceStatus(g_handle, &status);
}

constexpr DWORD Accepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PAUSE_CONTINUE;

void WINAPI Handle(DWORD control)
{
    g_handlerThread = GetCurrentThreadId();
    switch (control) {
    case SERVICE_CONTROL_STOP:
        Report(SERVICE_STOP_PENDING, 0);
        SetEvent(g_stop);
        break;
    case SERVICE_CONTROL_PAUSE:
        Report(SERVICE_PAUSED, Accepted);
        break;
    case SERVICE_CONTROL_CONTINUE:
        Report(SERVICE_RUNNING, Accepted);
        break;
    default:
        g_seen = g_seen * 1000 + control;
    }
}

void WINAPI Main(DWORD argc, LPWSTR* argv)
{
    g_mainThread = GetCurrentThreadId();
    g_stop = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_handle = RegisterServiceCtrlHandlerW(argv[0], &Handle);
    Report(SERVICE_START_PENDING, 0);
    Report(SERVICE_RUNNING, Accepted);
    WaitForSingleObject(g_stop, INFINITE);
    bool threads = g_mainThread != g_dispatcherThread && g_mainThread != g_handlerThread;
#ifndef _WIN32 // Wine has a third thread for the handler
    threads = threads && g_handlerThread == g_dispatcherThread;
#endif
    DWORD specific = g_seen * 100 + (threads ? 10 : 0) + argc;
    if (argc > 2 && WString(argv[2]) != TEXT("a b"))
        specific = 9;
    Report(SERVICE_STOPPED, 0, specific);
}

} // namespace

VLT_CHILD(service)
{
    g_dispatcherThread = GetCurrentThreadId();
    WCHAR name[] = TEXT("AnyName");
    const SERVICE_TABLE_ENTRYW table[] = {{name, &Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

VLT_CHILD(notEvenTrying)
{
    return 3;
}

TEST_F(ServiceControl, RegistrationIsKept)
{
    EXPECT_FALSE(Open(SERVICE_QUERY_CONFIG));
    EXPECT_EQ(ERROR_SERVICE_DOES_NOT_EXIST, GetLastError());
    const WString command = ProgramCommand("service");
    const auto create = [&](SC_HANDLE manager) {
        return ServiceHandle(CreateServiceW(manager, m_name.c_str(), TEXT("Display \u00E9"), SERVICE_ALL_ACCESS,
                                            SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS, SERVICE_AUTO_START,
                                            SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr,
                                            nullptr));
    };
    const ServiceHandle reader(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    EXPECT_FALSE(create(reader.Get()));
    EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
    m_service = create(m_manager.Get());
    ASSERT_TRUE(m_service);
    EXPECT_FALSE(create(m_manager.Get()));
    EXPECT_EQ(ERROR_SERVICE_EXISTS, GetLastError());

    DWORD needed = 0;
    EXPECT_FALSE(QueryServiceConfigW(m_service.Get(), nullptr, 0, &needed));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    std::vector<std::uint64_t> buffer(needed / 8 + 1);
    auto* const config = reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer.data());
    ASSERT_TRUE(QueryServiceConfigW(m_service.Get(), config, needed, &needed));
    EXPECT_EQ(DWORD{SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS}, config->dwServiceType);
    EXPECT_EQ(DWORD{SERVICE_AUTO_START}, config->dwStartType);
    EXPECT_EQ(DWORD{SERVICE_ERROR_NORMAL}, config->dwErrorControl);
    EXPECT_EQ(command, config->lpBinaryPathName);
    EXPECT_EQ(WString(TEXT("Display \u00E9")), config->lpDisplayName);

    ServiceHandle opened = Open(SERVICE_QUERY_CONFIG);
    ASSERT_TRUE(opened);
    EXPECT_FALSE(StartServiceW(opened.Get(), 0, nullptr));
    EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
    const SC_HANDLE closed = opened.Release();
    EXPECT_TRUE(CloseServiceHandle(closed));
    EXPECT_FALSE(CloseServiceHandle(closed));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    EXPECT_TRUE(DeleteService(m_service.Get()));
    m_service.Reset();
    EXPECT_TRUE(Eventually(20000, [&] { return !Open(SERVICE_QUERY_CONFIG); }));
    EXPECT_EQ(ERROR_SERVICE_DOES_NOT_EXIST, GetLastError());
}

TEST_F(ServiceControl, StartsIsControlledAndStops)
{
    EXPECT_FAILS(Open(SERVICE_QUERY_CONFIG), ERROR_SERVICE_DOES_NOT_EXIST);
    Install(ProgramCommand("service"));
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, State());
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Control(SERVICE_CONTROL_STOP));
    EXPECT_FAILS(StartServiceW(Open(SERVICE_QUERY_CONFIG).Get(), 0, nullptr), ERROR_ACCESS_DENIED);
    ASSERT_EQ(ERROR_SUCCESS, Start({TEXT("fast"), TEXT("a b")}));
    EXPECT_EQ(ERROR_SERVICE_ALREADY_RUNNING, Start());
    ASSERT_TRUE(Reaches(SERVICE_RUNNING));
    EXPECT_NE(GetCurrentProcessId(), Query().dwProcessId);
    EXPECT_EQ(Accepted, Query().dwControlsAccepted);

    EXPECT_EQ(ERROR_SUCCESS, Control(SERVICE_CONTROL_INTERROGATE));
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, m_status.dwCurrentState);
    EXPECT_EQ(ERROR_SUCCESS, Control(SERVICE_CONTROL_PAUSE));
    EXPECT_TRUE(Reaches(SERVICE_PAUSED));
    EXPECT_EQ(ERROR_SUCCESS, Control(SERVICE_CONTROL_CONTINUE));
    EXPECT_TRUE(Reaches(SERVICE_RUNNING));
    EXPECT_EQ(ERROR_SUCCESS, Control(128));
    EXPECT_EQ(ERROR_SUCCESS, Control(255));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, Control(100));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, Control(SERVICE_CONTROL_SHUTDOWN));

    EXPECT_EQ(ERROR_SUCCESS, Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(Reaches(SERVICE_STOPPED));
    const SERVICE_STATUS_PROCESS status = Query();
    EXPECT_EQ(DWORD{ERROR_SERVICE_SPECIFIC_ERROR}, status.dwWin32ExitCode);
    // Interrogations and user codes in their order, the handler on the dispatcher's thread, 3 arguments.
    EXPECT_EQ(((4u * 1000 + 128) * 1000 + 255) * 100 + 10 + 3, status.dwServiceSpecificExitCode);
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Control(SERVICE_CONTROL_STOP));
    ASSERT_EQ(ERROR_SUCCESS, Start());
    ASSERT_TRUE(Reaches(SERVICE_RUNNING));

    // Deleting a running service marks it.
    EXPECT_TRUE(DeleteService(m_service.Get()));
    EXPECT_FAILS(DeleteService(m_service.Get()), ERROR_SERVICE_MARKED_FOR_DELETE);
    EXPECT_EQ(ERROR_SUCCESS, Control(SERVICE_CONTROL_STOP));
    m_service.Reset();
    EXPECT_TRUE(Eventually(20000, [&] { return !Open(SERVICE_QUERY_CONFIG); }));
}

TEST_F(ServiceControl, AProgramThatIsNoServiceDoesNotStart)
{
    Install(TEXT("C:\\no such\\program.exe -x"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Start());
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, State());
    ASSERT_TRUE(DeleteService(m_service.Get()));
    m_service.Reset();
#ifdef _WIN32
    GTEST_SKIP() << "Wine waits a long time for a program that has ended";
#else
    Install(ProgramCommand("notEvenTrying"));
    EXPECT_EQ(ERROR_SERVICE_REQUEST_TIMEOUT, Start());
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, State());
#endif
}
