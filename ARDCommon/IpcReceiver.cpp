#include "ARDCommon/IpcReceiver.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlShareMemory.h"

namespace
{

constexpr DWORD kStartWait = 1000; // ms

// A request wins over the stop. One that is always there must not put the stop off for ever.
constexpr unsigned kLastRequests = 100;

} // namespace

CIpcReceiver::~CIpcReceiver()
{
    Stop();
}

void CIpcReceiver::SetName(const char* base)
{
    const std::string name = base;
    m_requestName = vlt::MakeGlobalName((name + kIpcRequestSuffix).c_str());
    m_acknowledgeName = vlt::MakeGlobalName((name + kIpcAcknowledgeSuffix).c_str());
    m_sectionName = vlt::MakeGlobalName(base) + kIpcSectionSuffix;
}

bool CIpcReceiver::Start()
{
    if (m_thread)
        return false;
    m_settled.Reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!m_settled)
        return false;
    m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, nullptr)));
    if (!m_thread)
        return false;
    WaitForSingleObject(m_settled.Get(), kStartWait);
    return true;
}

void CIpcReceiver::Stop()
{
    if (!m_thread)
        return;
    // A thread that has not made its stop event yet could not be told.
    WaitForSingleObject(m_settled.Get(), INFINITE);
    {
        const VlLock lock(m_lock);
        if (m_stopEvent)
            SetEvent(m_stopEvent.Get());
    }
    WaitForSingleObject(m_thread.Get(), INFINITE);
    m_thread.Reset();
    m_settled.Reset();
}

unsigned __stdcall CIpcReceiver::ThreadProc(void* self)
{
    auto* const receiver = static_cast<CIpcReceiver*>(self);
    receiver->Listen();
    SetEvent(receiver->m_settled.Get());
    return 0;
}

void CIpcReceiver::Listen()
{
    const DefSecAttr security;
    const vlt::KernelHandle request(CreateEventA(security.Get(), TRUE, FALSE, m_requestName.c_str()));
    if (!request) {
        VLT_TRACE(20, "Failed to create hEvent err( %d )", GetLastError());
        return;
    }
    vlt::KernelHandle stop(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!stop) {
        VLT_TRACE(20, "Failed to create m_hStopEvent err(%d)", GetLastError());
        return;
    }
    const HANDLE stopHandle = stop.Get();
    {
        const VlLock lock(m_lock);
        m_stopEvent = std::move(stop);
    }
    SetEvent(m_settled.Get());
    Serve(request.Get(), stopHandle);
    const VlLock lock(m_lock);
    m_stopEvent.Reset();
}

void CIpcReceiver::Serve(HANDLE request, HANDLE stop)
{
    const HANDLE handles[] = {request, stop};
    unsigned last = 0;
    for (;;) {
        DWORD result = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
        if (result == WAIT_OBJECT_0 && WaitForSingleObject(stop, 0) == WAIT_OBJECT_0 && ++last > kLastRequests)
            result = WAIT_OBJECT_0 + 1;
        switch (result) {
        case WAIT_OBJECT_0:
            if (!Receive(request))
                return;
            break;
        case WAIT_OBJECT_0 + 1:
            VLT_TRACE(40, "Stop event is pulsed");
            return;
        case WAIT_FAILED:
            VLT_TRACE(20, "WaitForMultipleObjects error : (%08x)", GetLastError());
            return;
        default:
            VLT_TRACE(20, "unknown error : %d (%08x)", result, GetLastError());
            return;
        }
    }
}

// False when there was no section.
bool CIpcReceiver::Receive(HANDLE request)
{
    VLT_TRACE(40, "Notify event is pulsed");
    ResetEvent(request);
    CVlShareMemory section;
    if (!section.Open(m_sectionName.c_str(), false))
        return false;
    void* view = nullptr;
    if (section.Map(&view, true) && section.MappedSize() >= kMinimumView)
        OnReceive(view);
    section.Close();
    const vlt::KernelHandle acknowledge(OpenEventA(EVENT_MODIFY_STATE, FALSE, m_acknowledgeName.c_str()));
    if (acknowledge)
        SetEvent(acknowledge.Get());
    return true;
}
