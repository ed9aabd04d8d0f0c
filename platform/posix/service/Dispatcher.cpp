#include "platform/posix/service/Dispatcher.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/PendingMoves.h"
#include "platform/posix/service/ControlChannel.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vlt::posix::service
{
namespace
{

std::mutex g_currentLock;
std::shared_ptr<Dispatcher>& CurrentSlot()
{
    static auto& slot = *new std::shared_ptr<Dispatcher>;
    return slot;
}

// For the signal handler: which controls were asked for, and whom to wake.
std::atomic<int> g_signalWake{-1};
std::atomic<bool> g_stopAsked{false};
std::atomic<bool> g_shutdownAsked{false};

constexpr int Signals[] = {SIGTERM, SIGINT, SIGPWR};

void OnSignal(int number)
{
    const int error = errno;
    (number == SIGPWR ? g_shutdownAsked : g_stopAsked).store(true);
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t done = write(g_signalWake.load(), &one, sizeof(one));
    errno = error;
}

class SignalScope
{
public:
    explicit SignalScope(int wake)
    {
        g_signalWake.store(wake);
        struct sigaction action {
        };
        action.sa_handler = OnSignal;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        for (std::size_t i = 0; i < std::size(Signals); ++i)
            sigaction(Signals[i], &action, &m_old[i]);
        // A starter may have blocked them; the caller's thread takes them.
        sigset_t set;
        sigemptyset(&set);
        for (const int number : Signals)
            sigaddset(&set, number);
        pthread_sigmask(SIG_UNBLOCK, &set, &m_mask);
    }
    ~SignalScope()
    {
        for (std::size_t i = 0; i < std::size(Signals); ++i)
            sigaction(Signals[i], &m_old[i], nullptr);
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    }
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

private:
    struct sigaction m_old[std::size(Signals)];
    sigset_t m_mask;
};

// Every report as one line of the file VLT_SERVICE_TRACE, the seven fields in decimal, for whoever
// must see the whole history.
void TraceStatus(const SERVICE_STATUS& status)
{
    const char* const path = std::getenv("VLT_SERVICE_TRACE");
    const Fd file(path && *path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644) : -1);
    if (!file)
        return;
    char line[128];
    const int length = std::snprintf(line, sizeof(line), "%u %u %u %u %u %u %u\n", status.dwServiceType,
                                     status.dwCurrentState, status.dwControlsAccepted, status.dwWin32ExitCode,
                                     status.dwServiceSpecificExitCode, status.dwCheckPoint, status.dwWaitHint);
    [[maybe_unused]] const ssize_t done = write(file.Get(), line, static_cast<std::size_t>(length));
}

DWORD AcceptBit(DWORD control)
{
    switch (control) {
    case SERVICE_CONTROL_STOP:
        return SERVICE_ACCEPT_STOP;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
        return SERVICE_ACCEPT_PAUSE_CONTINUE;
    case SERVICE_CONTROL_SHUTDOWN:
        return SERVICE_ACCEPT_SHUTDOWN;
    default:
        return 0; // always delivered
    }
}

} // namespace

std::shared_ptr<Dispatcher> Dispatcher::Current()
{
    const std::lock_guard guard(g_currentLock);
    return CurrentSlot();
}

BOOL Dispatcher::Run(LPSERVICE_MAIN_FUNCTIONW main)
{
    const auto self = std::make_shared<Dispatcher>();
    {
        const std::lock_guard guard(g_currentLock);
        if (CurrentSlot()) {
            SetLastError(ERROR_SERVICE_ALREADY_RUNNING);
            return FALSE;
        }
        CurrentSlot() = self;
    }
    self->m_wake = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    DWORD error = ERROR_SUCCESS;
    {
        const SignalScope signals(self->m_wake.Get());
        error = self->Start(main);
        if (error == ERROR_SUCCESS) {
            self->Loop();
            self->Finish();
        }
    }
    {
        const std::lock_guard guard(g_currentLock);
        CurrentSlot().reset();
    }
    if (error != ERROR_SUCCESS)
        SetLastError(error);
    return error == ERROR_SUCCESS;
}

DWORD Dispatcher::Start(LPSERVICE_MAIN_FUNCTIONW main)
{
    const char* const name = std::getenv("VLT_SERVICE");
    if (!name || !*name || ServiceFolder::Open(Utf16FromUtf8(name), m_folder) != ERROR_SUCCESS)
        return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
    ServiceConfig config;
    if (const DWORD error = m_folder.ReadConfig(config))
        return error;
    m_name = config.name;
    if (!m_folder.LockProcess(m_processLock))
        return ERROR_SERVICE_ALREADY_RUNNING;
    m_controls = ListenForControls(m_folder.Get());
    if (!m_controls || !m_wake)
        return ErrorFromErrno(errno);
    m_main = main;
    m_arguments = {m_name};
    m_status = {config.type, SERVICE_START_PENDING, 0, 0, 0, 0, 2000};
    if (const DWORD error = m_folder.WriteStatus(m_status))
        return error;
    if (!Connect())
        return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
    // Programs that the service starts are not the service.
    unsetenv("VLT_SERVICE");
    unsetenv("VLT_SERVICE_CHANNEL");
    CarryOutPendingMoves();
    const int failed = pthread_create(&m_thread, nullptr, MainThread, this);
    return failed ? ErrorFromErrno(failed) : ERROR_SUCCESS;
}

// Takes the arguments from the starter and tells it that the service is there. Started by a
// supervisor there is neither.
bool Dispatcher::Connect()
{
    const char* const number = std::getenv("VLT_SERVICE_CHANNEL");
    if (!number)
        return true;
    const Fd channel(std::atoi(number));
    if (fcntl(channel.Get(), F_SETFD, FD_CLOEXEC) != 0 || !WaitReadable(channel.Get(), ControlWait))
        return false;
    std::u16string packed(MaxArgumentBytes / sizeof(WCHAR), u'\0');
    const ssize_t size = recv(channel.Get(), packed.data(), MaxArgumentBytes, 0);
    if (size < 0)
        return false;
    packed.resize(static_cast<std::size_t>(size) / sizeof(WCHAR));
    for (WString& argument : UnpackArguments(packed))
        m_arguments.push_back(std::move(argument));
    const ChannelReport report{ChannelReport::Connected, 0};
    return send(channel.Get(), &report, sizeof(report), MSG_NOSIGNAL) == sizeof(report);
}

void* Dispatcher::MainThread(void* self)
{
    auto& me = *static_cast<Dispatcher*>(self);
    std::vector<LPWSTR> arguments;
    for (WString& argument : me.m_arguments)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    me.m_main(static_cast<DWORD>(me.m_arguments.size()), arguments.data());
    {
        const std::lock_guard guard(me.m_lock);
        me.m_mainReturned = true;
    }
    me.WakeUp();
    return nullptr;
}

// A main that returned without having registered a handler will never be stopped by anyone.
bool Dispatcher::IsOver()
{
    const std::lock_guard guard(m_lock);
    return m_mainReturned && (m_status.dwCurrentState == SERVICE_STOPPED || !m_handler);
}

void Dispatcher::WakeUp() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t done = write(m_wake.Get(), &one, sizeof(one));
}

void Dispatcher::Loop()
{
    while (!IsOver()) {
        pollfd entries[] = {{m_wake.Get(), POLLIN, 0}, {m_controls.Get(), POLLIN, 0}};
        if (poll(entries, 2, m_supervisor.UntilQuestion()) < 0)
            continue;
        if (m_supervisor.UntilQuestion() == 0)
            AskForLife();
        std::uint64_t count = 0;
        if (entries[0].revents != 0 && read(m_wake.Get(), &count, sizeof(count)) > 0)
            OnSignals();
        DeliverPending();
        if (entries[1].revents != 0) {
            const Fd connection(accept4(m_controls.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (connection)
                Answer(connection.Get());
        }
    }
}

// Every service answers this control with a report, for which it needs its handler, its status lock and this
// thread. One that is stuck in any of them does not.
void Dispatcher::AskForLife()
{
    LPHANDLER_FUNCTION handler = nullptr;
    unsigned before = 0;
    {
        const std::lock_guard guard(m_lock);
        handler = m_status.dwCurrentState == SERVICE_STOPPED ? nullptr : m_handler;
        before = m_reports;
    }
    if (handler)
        handler(SERVICE_CONTROL_INTERROGATE);
    bool answered = false;
    {
        const std::lock_guard guard(m_lock);
        answered = m_reports != before;
    }
    m_supervisor.OnAsked(answered);
}

void Dispatcher::OnSignals()
{
    if (g_stopAsked.exchange(false))
        m_pending = SERVICE_CONTROL_STOP;
    if (g_shutdownAsked.exchange(false))
        m_pending = SERVICE_CONTROL_SHUTDOWN;
}

void Dispatcher::DeliverPending()
{
    LPHANDLER_FUNCTION handler = nullptr;
    {
        const std::lock_guard guard(m_lock);
        if (m_pending == 0 || !m_handler)
            return;
        const bool ends = m_status.dwCurrentState == SERVICE_STOP_PENDING || m_status.dwCurrentState == SERVICE_STOPPED;
        handler = ends ? nullptr : m_handler;
    }
    const DWORD control = std::exchange(m_pending, 0u);
    if (handler)
        handler(control);
}

DWORD Dispatcher::Deliver(DWORD control)
{
    LPHANDLER_FUNCTION handler = nullptr;
    {
        const std::lock_guard guard(m_lock);
        const DWORD state = m_status.dwCurrentState;
        if (state == SERVICE_STOPPED)
            return ERROR_SERVICE_NOT_ACTIVE;
        const bool pending = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
        if (!m_handler || (pending && control != SERVICE_CONTROL_INTERROGATE))
            return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
        const DWORD bit = AcceptBit(control);
        if (bit != 0 && (m_status.dwControlsAccepted & bit) == 0)
            return ERROR_INVALID_SERVICE_CONTROL;
        handler = m_handler;
    }
    handler(control);
    return ERROR_SUCCESS;
}

void Dispatcher::Answer(int connection)
{
    // A peer that connects and says nothing holds the service up for one second at most.
    ControlRequest request{};
    if (!WaitReadable(connection, 1000) || recv(connection, &request, sizeof(request), 0) != sizeof(request) ||
        request.magic != ControlMagic)
        return;
    ControlAnswer answer{};
    answer.error = Deliver(request.control);
    {
        const std::lock_guard guard(m_lock);
        answer.status = m_status;
    }
    send(connection, &answer, sizeof(answer), MSG_NOSIGNAL);
}

HANDLE Dispatcher::Register(LPHANDLER_FUNCTION handler)
{
    const std::lock_guard guard(m_lock);
    if (!m_handle) {
        std::unique_ptr<ServiceStatusObject> object(new (std::nothrow) ServiceStatusObject(Current()));
        if (!object) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        m_handle = InsertHandle(std::move(object));
        if (!m_handle)
            return nullptr;
    }
    m_handler = handler;
    WakeUp();
    return m_handle;
}

bool Dispatcher::Report(const SERVICE_STATUS& status)
{
    {
        const std::lock_guard guard(m_lock);
        // One that was on its way in another thread when the service reported its end.
        if (m_status.dwCurrentState == SERVICE_STOPPED && status.dwCurrentState != SERVICE_STOPPED)
            return true;
        if (const DWORD error = m_folder.WriteStatus(status)) {
            SetLastError(error);
            return false;
        }
        m_status = status;
        ++m_reports;
        TraceStatus(status);
        m_supervisor.OnStatus(status);
    }
    WakeUp();
    return true;
}

void Dispatcher::Finish()
{
    pthread_join(m_thread, nullptr);
    HANDLE handle = nullptr;
    {
        const std::lock_guard guard(m_lock);
        handle = std::exchange(m_handle, nullptr);
        SetExitCodeOfService(m_status.dwCurrentState == SERVICE_STOPPED ? m_status.dwWin32ExitCode : 1);
    }
    if (handle)
        CloseHandleOfKind(handle, MaskOf(ObjectKind::ServiceStatus));
    unlinkat(m_folder.Get(), "control", 0);
    m_processLock = Fd();
    m_folder.RemoveIfMarked(m_name);
}

} // namespace vlt::posix::service

using namespace vlt::posix;
using namespace vlt::posix::service;

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table)
{
    if (!table || !table->lpServiceName || !table->lpServiceProc) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    return Dispatcher::Run(table->lpServiceProc);
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION handler)
{
    const auto dispatcher = Dispatcher::Current();
    if (!name || !handler || !dispatcher) {
        SetLastError(!name ? ERROR_INVALID_NAME : !handler ? ERROR_INVALID_PARAMETER : ERROR_SERVICE_NOT_IN_EXE);
        return nullptr;
    }
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(dispatcher->Register(handler));
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status)
{
    const auto object = Pin<ServiceStatusObject>(reinterpret_cast<HANDLE>(handle));
    if (!object)
        return FALSE;
    if (!status || status->dwCurrentState < SERVICE_STOPPED || status->dwCurrentState > SERVICE_PAUSED) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    return object->Owner().Report(*status);
}
