#include "realtime/ProcessExclusion.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlpxPidFormat.h"
#include "ARDCommon/VlUtil.h"
#include "engine/ProcAddress.h"
#include "platform/Text.h"
#include "realtime/State.h"

#include <cstring>

namespace
{

constexpr LONG kPeriod = 5000; // ms

} // namespace

void CProcessExclusion::Start()
{
    m_left = false;
    m_thread.Start([](CWorkerThread&) { return vlt::Realtime().processExclusion.AddExceptProcessIdThread(); });
}

VlCriticalSection& CProcessExclusion::Gate()
{
    m_thread.LendPriority();
    return m_gate;
}

void CProcessExclusion::End()
{
    {
        const VlLock lock(Gate());
        if (!m_left)
            m_thread.Terminate();
    }
    m_thread.End();
    m_timer.Reset();
    m_block.Close();
    m_command.Reset();
}

// The gate is held by the thread that stops the engine, which will end this one: here.
void CProcessExclusion::EnterGate()
{
    if (!m_gate.TryLock())
        Sleep(INFINITE);
}

unsigned CProcessExclusion::AddExceptProcessIdThread()
{
    EnterGate();
    VLT_TRACE(40, "AddExceptProcessIdThread Called!");
    AddProcess();
    m_left = true;
    m_gate.Unlock();
    return 0;
}

void CProcessExclusion::AddProcess()
{
    if (vlt::ScanModule() == nullptr) {
        VLT_TRACE(40, "AddExceptProcessIdThread: error AS handle");
        return;
    }
    const auto add = vlt::ProcAddress<ASAddRemoveExceptionProcess_t>(vlt::ScanModule(), "ASAddRemoveExceptionProcess");
    if (add == nullptr) {
        VLT_TRACE(40, "AddExceptProcessIdThread: error to get ASAddRemoveExceptionProcess");
        return;
    }
    m_timer.Reset(CreateWaitableTimerW(nullptr, FALSE, TEXT("vlntsrvAddExceptionTimer")));
    if (!m_timer) {
        VLT_TRACE(40, "AddExceptProcessIdThread: Error CreateWaitableTimer");
        return;
    }
    VLT_TRACE(40, "AddExceptProcessIdThread: success CreateWaitableTimer");
    const LARGE_INTEGER atOnce{};
    if (!SetWaitableTimer(m_timer.Get(), &atOnce, kPeriod, nullptr, nullptr, FALSE)) {
        VLT_TRACE(40, "InitKSAPI: error SetWaitableTimer");
    } else {
        VLT_TRACE(40, "AddExceptProcessIdThread: success SetWaitableTimer");
        while (!Attempt(add)) {
        }
    }
    CancelWaitableTimer(m_timer.Get());
    m_timer.Reset();
}

bool CProcessExclusion::Attempt(ASAddRemoveExceptionProcess_t add)
{
    m_gate.Unlock();
    WaitForSingleObjectEx(m_timer.Get(), INFINITE, TRUE);
    EnterGate();
    // The library may have gone during a wait.
    std::uint32_t processId = 0;
    if (GetVlpxPID(processId) && vlt::ScanModule() != nullptr && add(vlt::ScanHandle(), processId, 1) != 0) {
        VLT_TRACE(40, "AddExceptProcessIdThread: success to add exception process ID %d", processId);
        return true;
    }
    Sleep(0);
    VLT_TRACE(40, "AddExceptProcessIdThread: retry to add exception process ID after 5 seconds...");
    return false;
}

bool CProcessExclusion::GetVlpxPID(std::uint32_t& processId)
{
    if (!m_block.Create(kVlpxPidSection, sizeof(VlpxPidBlock), false, false)) {
        VLT_TRACE(20, "Error: CVlShareMemory.Create");
        return false;
    }
    const bool valid = RunCommandProgram() && ReadVlpxPID(processId);
    m_block.Close();
    return valid;
}

// Others may write the block, and may have made a smaller one.
bool CProcessExclusion::ReadVlpxPID(std::uint32_t& processId)
{
    void* view = nullptr;
    if (!m_block.Map(&view, true) || m_block.MappedSize() < sizeof(VlpxPidBlock)) {
        VLT_TRACE(20, "Error: CVlShareMemory.LockMemory");
        return false;
    }
    VlpxPidBlock block;
    std::memcpy(&block, view, sizeof block);
    m_block.Unmap();
    processId = block.processId;
    return block.status == kVlpxPidValid;
}

bool CProcessExclusion::StartCommandProgram()
{
    const WString line = vlt::ApplicationFolder() + TEXT("ArdCmdCom.exe ") + vlt::ToWide(kVlpxPidArgument);
    if (VlUtil::StartProcess(line.c_str(), m_command))
        return true;
    VLT_TRACE(20, "Error: VlUtil::SyncExecuteProcess err(%d)", GetLastError());
    return false;
}

// No destructor runs when the thread is ended in the wait, so no caller has anything that needs one.
bool CProcessExclusion::RunCommandProgram()
{
    if (!StartCommandProgram())
        return false;
    m_gate.Unlock();
    WaitForSingleObject(m_command.Get(), INFINITE);
    EnterGate();
    m_command.Reset();
    return true;
}
