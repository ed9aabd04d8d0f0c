#include "service/crealscan.h"

#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/RollbackFunc.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlUtil.h"
#include "realtime/FileUpdates.h"
#include "realtime/Setreal.h"
#include "realtime/State.h"

namespace
{

constexpr DWORD kPendingWaitHint = 6000; // ms
constexpr DWORD kAcknowledgeWait = 5000; // ms

void InitDebugTrace()
{
    const WString folder = vlt::ShortProgramFolder();
    const WString settings = folder + TEXT("ardentis.ini");
    // The service works without the trace, so the result does not matter.
    g_VlDebug.Init(folder.c_str(), settings.c_str(), TEXT("VlntSrv"), 1);
}

} // namespace

CRealScan::CRealScan(LPCWSTR serviceName, LPCWSTR displayName, DWORD serviceType)
    : CService(serviceName, displayName, serviceType)
{
    s_instance = this;
}

CRealScan::~CRealScan()
{
    s_instance = nullptr;
}

bool CRealScan::Init()
{
    InitDebugTrace();
    VLT_TRACE(40, "CRealScan::Init()");
    CreateEvents();
    CRollbackFunc().StartCheck(); // the engine must not load a condemned pattern
    if (!InitKSAPI(vlt::ProgramFolder())) {
        VLT_TRACE(20, "Failed: InitKSAPI()");
        return false;
    }
    if (!StartPidExceptionList())
        return false;
    UpdateARDFiles(1);
    m_descriptor = VlUtil::CreateNullDaclDescriptor();
    if (!m_descriptor) {
        VLT_TRACE(40, "Error create event for WinXP!\n");
        return false;
    }
    VLT_TRACE(40, "end of CRealScan::Init()");
    return true;
}

bool CRealScan::StartPidExceptionList()
{
    if (!m_pidExceptionList.Create(kPidExceptionChannel)) {
        VLT_TRACE(20, "ReceivePidExceptionList.Create() fails");
        return false;
    }
    m_pidExceptionList.SetLibrary(vlt::ScanModule(), vlt::ScanHandle());
    if (!m_pidExceptionList.Wait()) {
        VLT_TRACE(20, "ReceivePidExceptionList.Wait() fails");
        return false;
    }
    return true;
}

void CRealScan::CreateEvents()
{
    OpenEvent(m_acknowledgeEvent);
    OpenEvent(m_stopEvent);
    // A stop that came before the event is not to be lost: no second one would be acted on.
    if (InterlockedCompareExchange(&m_stopFlag, 0, 0) != 0)
        SignalEvent(m_stopEvent);
}

void CRealScan::Run()
{
    SetStatus(SERVICE_RUNNING, 0, 0, SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN);
    WaitForSingleObject(m_stopEvent.Get(), INFINITE);
}

void CRealScan::DeInit()
{
    VLT_TRACE(40, "CRealScan::DeInit()");
    CService::DeInit();
    // Before the library that it calls is unloaded.
    m_pidExceptionList.Stop();
    CloseEvent(m_acknowledgeEvent);
    CloseEvent(m_stopEvent);
    CRollbackFunc().StopNotice();
    StopRealtimeScan();
}

void CRealScan::OnStop()
{
    VLT_TRACE(40, "CRealScan::OnStop()");
    RequestStop();
}

void CRealScan::OnShutdown()
{
    VLT_TRACE(40, "CRealScan::OnShutdown()");
    RequestStop();
}

void CRealScan::RequestStop()
{
    SetStatus(SERVICE_STOP_PENDING, 1, kPendingWaitHint);
    InterlockedExchange(&m_stopFlag, 1);
    SignalEvent(m_stopEvent);
}

void CRealScan::OnPause()
{
    Acknowledge(SERVICE_PAUSE_PENDING, SERVICE_PAUSED);
}

void CRealScan::OnContinue()
{
    Acknowledge(SERVICE_CONTINUE_PENDING, SERVICE_RUNNING);
}

void CRealScan::Acknowledge(DWORD pendingState, DWORD state)
{
    DWORD checkpoint = 1;
    SetStatus(pendingState, checkpoint, kPendingWaitHint);
    InterlockedExchange(&m_pauseFlag, 1);
    while (WaitForSingleObject(m_acknowledgeEvent.Get(), kAcknowledgeWait) == WAIT_TIMEOUT)
        SetStatus(pendingState, ++checkpoint, kPendingWaitHint);
    SetStatus(state, 0, 0);
    ResetEvent(m_acknowledgeEvent.Get());
}
