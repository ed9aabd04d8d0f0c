// A worker thread of the controller and the way to end it.
//
// Workers run at idle priority. One makes the event that wakes it by itself and shows it here, so the
// end may come before there is an event, and another program may take the signal of one that has a
// name: End therefore signals again and again until the thread has ended.
//
// Start, End, Terminate belong to the thread that starts and stops the engine.
#pragma once

#include "ARDCommon/VlCriticalSection.h"
#include "platform/Unique.h"

#include <atomic>

class CWorkerThread
{
public:
    using Proc = unsigned (*)(CWorkerThread& self);

    CWorkerThread() = default;
    CWorkerThread(const CWorkerThread&) = delete;
    CWorkerThread& operator=(const CWorkerThread&) = delete;

    // A thread that cannot be made or does not begin is traced.
    void Start(Proc proc);

    // Tells the worker to end and waits for it, without limit. Nothing when it was not started.
    void End();
    // Ends it wherever it is, so its procedure must see to it that nothing is lost by that.
    void Terminate();

    // For whoever waits for the worker: on a busy machine a thread of idle priority may not run for long.
    void LendPriority();

    // For the worker. What it shows must stay open until it shows null.
    bool IsToRun() const { return m_run; }
    void SetWakeEvent(HANDLE event);

private:
    static unsigned __stdcall ThreadProc(void* self);
    void WakeUp();
    void AwaitBegin() const;

    Proc m_proc = nullptr;
    vlt::KernelHandle m_thread;
    bool m_resumed = false;
    std::atomic<bool> m_begun = false;
    std::atomic<bool> m_run = true;
    VlCriticalSection m_lock; // for the event
    HANDLE m_wakeEvent = nullptr;
};
