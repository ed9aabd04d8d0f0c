#include "realtime/WorkerThread.h"

#include "ARDCommon/VlDebug.h"

#include <algorithm>

namespace
{

constexpr DWORD kLongestWait = 256; // ms, between two rounds of signals to a thread that is to end
// Whoever takes a signal needs a moment before it can take the next one.
constexpr int kSignalsOfRound = 4;

} // namespace

void CWorkerThread::Start(Proc proc)
{
    m_proc = proc;
    m_begun = false;
    m_run = true;
    m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, CREATE_SUSPENDED, nullptr)));
    SetThreadPriority(m_thread.Get(), THREAD_PRIORITY_IDLE);
    m_resumed = ResumeThread(m_thread.Get()) != 0xFFFFFFFF;
    if (!m_resumed)
        VLT_TRACE(20, "Error: ResumeThread err(%d)", GetLastError());
}

unsigned __stdcall CWorkerThread::ThreadProc(void* self)
{
    auto* const worker = static_cast<CWorkerThread*>(self);
    worker->m_begun = true;
    return worker->m_proc(*worker);
}

void CWorkerThread::End()
{
    if (!m_thread)
        return;
    m_run = false;
    LendPriority();
    if (!m_resumed)
        TerminateThread(m_thread.Get(), 0); // nothing else ends a thread that never began
    DWORD wait = 1;
    do {
        for (int i = 0; i < kSignalsOfRound; ++i)
            WakeUp();
        wait = std::min(wait * 2, kLongestWait);
    } while (WaitForSingleObject(m_thread.Get(), wait) == WAIT_TIMEOUT);
    m_thread.Reset();
}

void CWorkerThread::Terminate()
{
    if (!m_thread)
        return;
    LendPriority();
    AwaitBegin();
    TerminateThread(m_thread.Get(), 0);
    WaitForSingleObject(m_thread.Get(), INFINITE);
    m_thread.Reset();
}

void CWorkerThread::LendPriority()
{
    SetThreadPriority(m_thread.Get(), THREAD_PRIORITY_NORMAL);
}

// A thread that is ended while the system makes it ready may take a lock of the system's with it.
void CWorkerThread::AwaitBegin() const
{
    while (m_resumed && !m_begun && WaitForSingleObject(m_thread.Get(), 1) == WAIT_TIMEOUT) {
    }
}

void CWorkerThread::SetWakeEvent(HANDLE event)
{
    const VlLock lock(m_lock);
    m_wakeEvent = event;
}

void CWorkerThread::WakeUp()
{
    const VlLock lock(m_lock);
    if (m_wakeEvent != nullptr)
        SetEvent(m_wakeEvent);
}
