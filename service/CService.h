// The frame of a Windows service: registration with the control manager, status reports, and a thread
// of its own that carries out the controls which the manager's thread receives.
//
// Fatal errors are written to the event log and raised as structured exceptions; the service main
// turns the exception's code into the service's exit code. On Windows destructors of the frames
// between the raise and the service main do not run, so no function that can raise holds anything
// that must be released while it does.
#pragma once

#include "ARDCommon/VlCriticalSection.h"
#include "platform/Unique.h"
#include "platform/win32.h"

class CService
{
public:
    using ControlThreadProc = unsigned(__stdcall*)(void* argument);

    // SetStatus: keep the cached value.
    static constexpr DWORD kUnchanged = 0xFFFFFFFF;

    // Names of up to 256 characters.
    CService(LPCWSTR serviceName, LPCWSTR displayName, DWORD serviceType);
    virtual ~CService() = default;
    CService(const CService&) = delete;
    CService& operator=(const CService&) = delete;

    virtual void StartControlThread(ControlThreadProc threadProc);
    virtual void ControlLoop();
    virtual void CreateControlEvents();
    virtual bool Init() = 0; // false: the service stops with exit code 0
    virtual void DeInit();   // safe after a failed Init, and when called again
    virtual void ParseArguments(DWORD argc, LPWSTR* argv);
    virtual void OnPause();
    virtual void OnContinue();
    virtual void OnShutdown();
    virtual void OnUserControl(DWORD code);
    virtual void Run() = 0; // returns when the service is to stop
    virtual void OnStop() = 0;

    // Runs the service that `Instance` points to; for the dispatcher's table.
    static void WINAPI ServiceMain(DWORD argc, LPWSTR* argv);

    // Returns when the service main is not running. The dispatcher returns at the first "stopped", and
    // after an exception that one comes before DeInit, so the object must not be destroyed yet.
    void WaitForServiceMain();

    // Reports the state to the control manager. A pending state needs a checkpoint and a wait hint (ms)
    // other than 0; stopped, running and paused have none whatever is passed. Exit codes are reported
    // when stopped only. Raises on failure. From any thread.
    void SetStatus(DWORD state, DWORD checkpoint, DWORD waitHint, DWORD controlsAccepted = kUnchanged,
                   DWORD win32ExitCode = 0, DWORD serviceExitCode = 0);

    // Says that `operation` failed with the code; with code 0 the operation is the whole text. Returns
    // the code unless it raises it.
    DWORD ReportError(LPCWSTR operation, bool logToEventLog, bool raise, DWORD errorCode, DWORD eventId = 0);

    // Writes to the event log with the display name as its source.
    void LogEvent(LPCWSTR text, DWORD eventId, bool isError);

protected:
    // Events that the control threads share with the service main: made, signalled and closed under one
    // lock, so that a late control never signals a handle that has been closed. All are unnamed and
    // auto-reset; OpenEvent raises when the system refuses.
    void OpenEvent(vlt::KernelHandle& event);
    void SignalEvent(const vlt::KernelHandle& event);
    void CloseEvent(vlt::KernelHandle& event);

    // The one service of this process.
    static CService* s_instance;

private:
    struct MainCall;
    static void RunMain(void* context);
    static void WINAPI Handler(DWORD control);
    static unsigned __stdcall ControlThread(void* argument);

    void Main(DWORD argc, LPWSTR* argv);
    bool RegisterHandler(LPHANDLER_FUNCTION handler);
    void HandleControl(DWORD control);
    DWORD CurrentState();
    bool HasStatusHandle();

    enum ControlEvent { StopEvent, PauseEvent, ContinueEvent, ShutdownEvent, ControlEventCount };

    VlCriticalSection m_statusLock;
    SERVICE_STATUS_HANDLE m_statusHandle = nullptr;
    DWORD m_currentState = 0;
    DWORD m_controlsAccepted = 0;
    DWORD m_checkpoint = 0;
    DWORD m_waitHint = 0;
    DWORD m_lastControl = 0; // the manager's thread only
    vlt::KernelHandle m_controlEvents[ControlEventCount];
    vlt::KernelHandle m_controlThread;
    WCHAR m_serviceName[257];
    WCHAR m_displayName[257];
    const DWORD m_serviceType;
    VlCriticalSection m_mainLock; // held while the service main runs
};
