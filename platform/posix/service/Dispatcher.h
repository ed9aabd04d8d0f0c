// The service's side: the dispatcher loop, the control handler and the status reports.
//
// Threads: StartServiceCtrlDispatcherW keeps its caller, which calls the control handler; the service
// main has a thread of its own; SetServiceStatus may come from any thread.
//
// Signals: SIGTERM and SIGINT are a stop control, SIGPWR a shutdown control. One that comes before
// there is a handler is delivered when there is, also while the service starts: unlike a manager, which
// refuses and tries again, a signal comes once.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/service/ServiceStore.h"
#include "platform/posix/service/Supervisor.h"
#include "platform/win32.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace vlt::posix::service
{

class Dispatcher
{
public:
    // The one that runs in this process, or null.
    static std::shared_ptr<Dispatcher> Current();

    // FALSE with the last error, or TRUE after the service has stopped.
    static BOOL Run(LPSERVICE_MAIN_FUNCTIONW main);

    HANDLE Register(LPHANDLER_FUNCTION handler);
    bool Report(const SERVICE_STATUS& status);

private:
    DWORD Start(LPSERVICE_MAIN_FUNCTIONW main);
    bool Connect();
    void Loop();
    void Finish();
    static void* MainThread(void* self);
    void OnSignals();
    void DeliverPending();
    void Answer(int connection);
    void AskForLife();
    DWORD Deliver(DWORD control);
    bool IsOver();
    void WakeUp() const;

    WString m_name;
    ServiceFolder m_folder;
    Fd m_processLock;
    Fd m_controls;
    Fd m_wake;
    LPSERVICE_MAIN_FUNCTIONW m_main = nullptr;
    std::vector<WString> m_arguments;
    pthread_t m_thread{};
    DWORD m_pending = 0; // a control that a signal asked for; dispatcher's thread only

    std::mutex m_lock; // of all below
    SERVICE_STATUS m_status{};
    LPHANDLER_FUNCTION m_handler = nullptr;
    HANDLE m_handle = nullptr;
    bool m_mainReturned = false;
    unsigned m_reports = 0;
    Supervisor m_supervisor; // the watchdog's part: dispatcher's thread only
};

// What a SERVICE_STATUS_HANDLE stands for.
class ServiceStatusObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::ServiceStatus;
    explicit ServiceStatusObject(std::shared_ptr<Dispatcher> dispatcher) noexcept
        : Object(kKind), m_dispatcher(std::move(dispatcher))
    {
    }
    Dispatcher& Owner() noexcept { return *m_dispatcher; }

private:
    const std::shared_ptr<Dispatcher> m_dispatcher;
};

} // namespace vlt::posix::service
