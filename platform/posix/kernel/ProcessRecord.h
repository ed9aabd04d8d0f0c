// A process as its handles see it. All handles of one child share one record, since its exit code
// can be collected only once.
#pragma once

#include "platform/posix/kernel/EventWaitable.h"
#include "platform/posix/kernel/Reactor.h"
#include "platform/posix/win32/kernel.h"

#include <memory>
#include <mutex>
#include <optional>
#include <sys/types.h>

namespace vlt::posix
{

class ProcessRecord final : public Waitable, private ReactorClient, public std::enable_shared_from_this<ProcessRecord>
{
public:
    // The record of a child that was just started. Null with the last error set.
    static std::shared_ptr<ProcessRecord> OfChild(pid_t id);
    // Any process. Null with ERROR_INVALID_PARAMETER when there is none of that id.
    static std::shared_ptr<ProcessRecord> Open(pid_t id);

    ProcessRecord(pid_t id, int descriptor, bool isChild) noexcept;
    ~ProcessRecord();

    pid_t Id() const noexcept { return m_id; }
    bool MayTerminate() const noexcept;
    // False with the last error set.
    bool Terminate(UINT exitCode) noexcept;
    // STILL_ACTIVE while it runs; empty when the system does not tell, as for another's child.
    std::optional<DWORD> ExitCode() noexcept;

    // A child whose handle is closed while it runs is still collected at its end.
    void OnHandleClosed() noexcept;

    Taken TryTake() noexcept override;
    bool PrepareWait() noexcept override { return Watch(); }
    Taken BeginWait(std::uint32_t& ticket) noexcept override { return m_ended.BeginWait(ticket); }
    Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept override
    {
        return m_ended.TryEndWait(ticket, expected);
    }
    void AbandonWait() noexcept override { m_ended.AbandonWait(); }
    FutexRef Futex() const noexcept override { return m_ended.Futex(); }
    int PollDescriptor() const noexcept override { return m_descriptor; }

private:
    bool Watch() noexcept;
    void OnReady(std::uint32_t epollEvents) noexcept override;
    bool HasEnded() const noexcept;
    void Collect() noexcept;
    std::optional<DWORD> CollectedCode() const noexcept;

    const pid_t m_id;
    const int m_descriptor; // pidfd
    const bool m_isChild;
    EventState m_endedState;
    EventWaitable m_ended;

    std::mutex m_lock;                     // of all below
    std::shared_ptr<ProcessRecord> m_self; // while the reactor calls it
    bool m_collected = false;
    std::optional<DWORD> m_exitCode;
    std::optional<DWORD> m_givenCode; // TerminateProcess's, which a signal cannot carry
};

} // namespace vlt::posix
