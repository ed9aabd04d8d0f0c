// Has the scan library leave out the process of the suite's proxy, whose files pass through it.
//
// A thread asks the command program for the process every five seconds until the library has accepted
// one, then ends. The stop ends it by force. What a thread holds when it is ended by force is lost, and
// with a lock of the system's the whole process would stand still; so the thread holds the gate
// whenever it does anything, and the one that ends it takes the gate first. It then is in one of its
// waits: for the next attempt, for the command program, or for its end. What it has open there belongs
// to this object.
#pragma once

#include "ARDCommon/VlCriticalSection.h"
#include "ARDCommon/VlShareMemory.h"
#include "engine/ArdScanAbi.h"
#include "platform/Unique.h"
#include "realtime/WorkerThread.h"

class CProcessExclusion
{
public:
    CProcessExclusion() = default;
    CProcessExclusion(const CProcessExclusion&) = delete;
    CProcessExclusion& operator=(const CProcessExclusion&) = delete;

    // Both for the thread that starts and stops the engine. A command program that is running when the
    // thread is ended is left to itself.
    void Start();
    void End();

    // For the stop: while it is held the thread makes no use of the scan library.
    VlCriticalSection& Gate();

private:
    // Hold the gate, but for their waits.
    unsigned AddExceptProcessIdThread();
    void AddProcess();
    bool Attempt(ASAddRemoveExceptionProcess_t add);
    bool GetVlpxPID(std::uint32_t& processId);
    bool ReadVlpxPID(std::uint32_t& processId);
    bool RunCommandProgram();
    bool StartCommandProgram();

    void EnterGate();

    CWorkerThread m_thread;
    VlCriticalSection m_gate;
    bool m_left = false; // with the next three: of whom holds the gate
    CVlShareMemory m_block;
    vlt::KernelHandle m_timer;
    vlt::KernelHandle m_command;
};
