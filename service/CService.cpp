#include "service/CService.h"

#include "ARDCommon/EventLog.h"
#include "platform/Guard.h"
#include "platform/Text.h"

#include <array>

namespace
{

constexpr DWORD kControlThreadWait = 10000; // ms
constexpr DWORD kStartWaitHint = 5000;      // ms

bool IsPending(DWORD state)
{
    return state != SERVICE_STOPPED && state != SERVICE_RUNNING && state != SERVICE_PAUSED;
}

} // namespace

CService* CService::s_instance = nullptr;

CService::CService(LPCWSTR serviceName, LPCWSTR displayName, DWORD serviceType) : m_serviceType(serviceType)
{
    vlt::CopyToField(m_serviceName, WStringView(serviceName));
    vlt::CopyToField(m_displayName, WStringView(displayName));
}

// ---------------------------------------------------------------------------------------------
// The service main

struct CService::MainCall {
    CService* service;
    DWORD argc;
    LPWSTR* argv;
};

void WINAPI CService::ServiceMain(DWORD argc, LPWSTR* argv)
{
    if (s_instance != nullptr)
        s_instance->Main(argc, argv);
}

void CService::Main(DWORD argc, LPWSTR* argv)
{
    const VlLock running(m_mainLock);
    MainCall call{this, argc, argv};
    DWORD code = 0;
    if (VltGuardedCall(&CService::RunMain, &call, &code))
        return;
    // Reported at once, since DeInit may wait for long, and again when it is true.
    if (HasStatusHandle())
        SetStatus(SERVICE_STOPPED, 0, 0, 0, code, 0);
    DeInit();
    if (HasStatusHandle())
        SetStatus(SERVICE_STOPPED, 0, 0, 0, code, 0);
}

void CService::RunMain(void* context)
{
    const MainCall& call = *static_cast<MainCall*>(context);
    CService& service = *call.service;
    service.CreateControlEvents();
    service.RegisterHandler(&CService::Handler);
    service.ParseArguments(call.argc, call.argv);
    service.StartControlThread(&CService::ControlThread);
    if (!service.Init()) {
        service.DeInit();
        if (service.HasStatusHandle())
            service.SetStatus(SERVICE_STOPPED, 0, 0, 0, 0, 0);
        return;
    }
    service.Run();
    service.DeInit();
    service.SetStatus(SERVICE_STOPPED, 0, 0, 0, 0, 0);
}

void CService::WaitForServiceMain()
{
    const VlLock wait(m_mainLock);
}

void CService::CreateControlEvents()
{
    for (vlt::KernelHandle& event : m_controlEvents)
        OpenEvent(event);
}

bool CService::RegisterHandler(LPHANDLER_FUNCTION handler)
{
    m_statusLock.Lock(); // a control that arrives now waits for the handle
    m_statusHandle = RegisterServiceCtrlHandlerW(m_serviceName, handler);
    const bool registered = m_statusHandle != nullptr;
    const DWORD error = registered ? ERROR_SUCCESS : GetLastError();
    m_statusLock.Unlock();
    if (!registered)
        ReportError(TEXT("RegisterServiceCtrlHandler"), true, true, error);
    SetStatus(SERVICE_START_PENDING, 1, kStartWaitHint);
    return true;
}

void CService::StartControlThread(ControlThreadProc threadProc)
{
    m_controlThread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, threadProc, nullptr, 0, nullptr)));
    if (!m_controlThread)
        ReportError(TEXT("_beginthreadex"), true, true, GetLastError());
}

void CService::DeInit()
{
    // After a start that failed nobody signals the thread, and the wait runs out.
    if (m_controlThread)
        WaitForSingleObject(m_controlThread.Get(), kControlThreadWait);
    m_controlThread.Reset();
    for (vlt::KernelHandle& event : m_controlEvents)
        CloseEvent(event);
}

void CService::ParseArguments(DWORD /*argc*/, LPWSTR* /*argv*/) {}

void CService::OnPause() {}

void CService::OnContinue() {}

void CService::OnShutdown() {}

void CService::OnUserControl(DWORD /*code*/) {}

// ---------------------------------------------------------------------------------------------
// Controls

void WINAPI CService::Handler(DWORD control)
{
    if (s_instance != nullptr)
        s_instance->HandleControl(control);
}

unsigned __stdcall CService::ControlThread(void* /*argument*/)
{
    if (s_instance != nullptr)
        s_instance->ControlLoop();
    return 0;
}

void CService::HandleControl(DWORD control)
{
    if (control == m_lastControl)
        return;
    if (control == SERVICE_CONTROL_INTERROGATE) {
        SetStatus(CurrentState(), kUnchanged, kUnchanged);
        return;
    }
    if (control == SERVICE_CONTROL_CONTINUE && CurrentState() == SERVICE_RUNNING)
        return;
    m_lastControl = control;
    switch (control) {
    case SERVICE_CONTROL_STOP:
        SignalEvent(m_controlEvents[StopEvent]);
        break;
    case SERVICE_CONTROL_PAUSE:
        SignalEvent(m_controlEvents[PauseEvent]);
        break;
    case SERVICE_CONTROL_CONTINUE:
        SignalEvent(m_controlEvents[ContinueEvent]);
        break;
    case SERVICE_CONTROL_SHUTDOWN:
        SignalEvent(m_controlEvents[ShutdownEvent]);
        break;
    default:
        OnUserControl(control);
        break;
    }
}

void CService::ControlLoop()
{
    // Copies: after a failed start the events are closed while this thread waits for them, and the
    // service may be gone before the thread is.
    std::array<HANDLE, ControlEventCount> events{};
    {
        const VlLock lock(m_statusLock);
        for (std::size_t i = 0; i < events.size(); ++i)
            events[i] = m_controlEvents[i].Get();
    }

    for (;;) {
        switch (WaitForMultipleObjects(ControlEventCount, events.data(), FALSE, INFINITE)) {
        case WAIT_OBJECT_0 + StopEvent:
            OnStop();
            return;
        case WAIT_OBJECT_0 + PauseEvent:
            OnPause();
            ResetEvent(events[PauseEvent]);
            break;
        case WAIT_OBJECT_0 + ContinueEvent:
            OnContinue();
            ResetEvent(events[ContinueEvent]);
            break;
        case WAIT_OBJECT_0 + ShutdownEvent:
            OnShutdown();
            return;
        default:
            break;
        }
    }
}

void CService::OpenEvent(vlt::KernelHandle& event)
{
    const HANDLE handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (handle == nullptr)
        ReportError(TEXT("CreateEvent"), true, true, GetLastError());
    const VlLock lock(m_statusLock);
    event.Reset(handle);
}

void CService::SignalEvent(const vlt::KernelHandle& event)
{
    const VlLock lock(m_statusLock);
    SetEvent(event.Get());
}

void CService::CloseEvent(vlt::KernelHandle& event)
{
    const VlLock lock(m_statusLock);
    event.Reset();
}

// ---------------------------------------------------------------------------------------------
// Status and errors

void CService::SetStatus(DWORD state, DWORD checkpoint, DWORD waitHint, DWORD controlsAccepted, DWORD win32ExitCode,
                         DWORD serviceExitCode)
{
    if (IsPending(state)) {
        if (checkpoint == 0 || waitHint == 0)
            ReportError(TEXT("CService::SetStatus: Pending statuses require a hint and checkpoint"), true, true, 0, 0);
    } else {
        checkpoint = 0;
        waitHint = 0;
    }

    m_statusLock.Lock();
    m_currentState = state;
    if (checkpoint != kUnchanged)
        m_checkpoint = checkpoint;
    if (waitHint != kUnchanged)
        m_waitHint = waitHint;
    if (controlsAccepted != kUnchanged)
        m_controlsAccepted = controlsAccepted;
    SERVICE_STATUS status{};
    status.dwServiceType = m_serviceType;
    status.dwCurrentState = m_currentState;
    status.dwControlsAccepted = m_controlsAccepted;
    status.dwWin32ExitCode = state == SERVICE_STOPPED ? win32ExitCode : 0;
    status.dwServiceSpecificExitCode = state == SERVICE_STOPPED ? serviceExitCode : 0;
    status.dwCheckPoint = m_checkpoint;
    status.dwWaitHint = m_waitHint;
    const SERVICE_STATUS_HANDLE handle = m_statusHandle;
    m_statusLock.Unlock();

    if (!SetServiceStatus(handle, &status))
        ReportError(TEXT("SetServiceStatus"), true, true, GetLastError());
}

DWORD CService::CurrentState()
{
    const VlLock lock(m_statusLock);
    return m_currentState;
}

bool CService::HasStatusHandle()
{
    const VlLock lock(m_statusLock);
    return m_statusHandle != nullptr;
}

DWORD CService::ReportError(LPCWSTR operation, bool logToEventLog, bool raise, DWORD errorCode, DWORD eventId)
{
    if (logToEventLog)
        LogEvent(vlt::ErrorText(operation, errorCode).c_str(), eventId, true);
    if (raise)
        RaiseException(errorCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return errorCode;
}

void CService::LogEvent(LPCWSTR text, DWORD eventId, bool isError)
{
    vlt::LogEvent(m_displayName, text, eventId, isError);
}
