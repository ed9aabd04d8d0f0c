#include "platform/posix/kernel/ProcessRecord.h"

#include "platform/posix/core/Error.h"

#include <cerrno>
#include <csignal>
#include <map>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

// The running children that this process started, and those that were not collected yet.
struct Children {
    std::mutex lock;
    std::map<pid_t, std::shared_ptr<ProcessRecord>> records;
};
Children& TheChildren() noexcept
{
    static Children& children = *new Children;
    return children;
}

int OpenPidFd(pid_t id) noexcept
{
    return static_cast<int>(syscall(SYS_pidfd_open, id, 0));
}
bool SendSignal(int descriptor, int signal) noexcept
{
    return syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0) == 0;
}

DWORD CodeFromWaitStatus(int status) noexcept
{
    return static_cast<DWORD>(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

// The kernel's record of an ended process that is not our child (Linux 6.15 and later).
std::optional<DWORD> CodeFromKernel(int descriptor) noexcept
{
    struct Info {
        std::uint64_t mask;
        std::uint64_t controlGroup;
        std::uint32_t ids[11];
        std::int32_t exitCode;
    };
    static_assert(sizeof(Info) == 64);
    constexpr std::uint64_t exitCodeField = 1u << 3;
    Info info{};
    info.mask = exitCodeField;
    if (ioctl(descriptor, _IOWR(0xFF, 11, Info), &info) != 0 || (info.mask & exitCodeField) == 0)
        return std::nullopt;
    return CodeFromWaitStatus(info.exitCode);
}

} // namespace

std::shared_ptr<ProcessRecord> ProcessRecord::OfChild(pid_t id)
{
    const int descriptor = OpenPidFd(id);
    if (descriptor < 0) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    auto record = std::make_shared<ProcessRecord>(id, descriptor, true);
    Children& children = TheChildren();
    const std::lock_guard guard(children.lock);
    children.records[id] = record;
    return record;
}

std::shared_ptr<ProcessRecord> ProcessRecord::Open(pid_t id)
{
    {
        Children& children = TheChildren();
        const std::lock_guard guard(children.lock);
        if (const auto found = children.records.find(id); found != children.records.end())
            return found->second;
    }
    const int descriptor = id > 0 ? OpenPidFd(id) : -1;
    if (descriptor < 0) {
        SetLastError(id <= 0 || errno == ESRCH || errno == EINVAL ? ERROR_INVALID_PARAMETER : ErrorFromErrno(errno));
        return nullptr;
    }
    return std::make_shared<ProcessRecord>(id, descriptor, false);
}

ProcessRecord::ProcessRecord(pid_t id, int descriptor, bool isChild) noexcept
    : m_id(id), m_descriptor(descriptor), m_isChild(isChild), m_ended(m_endedState, true, false)
{
}

ProcessRecord::~ProcessRecord()
{
    close(m_descriptor);
}

bool ProcessRecord::HasEnded() const noexcept
{
    pollfd poll{m_descriptor, POLLIN, 0};
    return ::poll(&poll, 1, 0) == 1;
}

bool ProcessRecord::MayTerminate() const noexcept
{
    return SendSignal(m_descriptor, 0) || errno != EPERM;
}

bool ProcessRecord::Terminate(UINT exitCode) noexcept
{
    const std::lock_guard guard(m_lock);
    if (m_collected || HasEnded()) {
        SetLastError(ERROR_ACCESS_DENIED); // as for any process that has ended
        return false;
    }
    if (!SendSignal(m_descriptor, SIGKILL)) {
        SetLastErrorFromErrno();
        return false;
    }
    m_givenCode = exitCode;
    return true;
}

std::optional<DWORD> ProcessRecord::ExitCode() noexcept
{
    if (TryTake() == Taken::No)
        return STILL_ACTIVE;
    const std::lock_guard guard(m_lock);
    return m_exitCode;
}

Taken ProcessRecord::TryTake() noexcept
{
    if (m_ended.IsSignaled())
        return Taken::Yes;
    if (!HasEnded())
        return Taken::No;
    Collect();
    return Taken::Yes;
}

std::optional<DWORD> ProcessRecord::CollectedCode() const noexcept
{
    siginfo_t info{};
    bool known = m_isChild && waitid(P_PIDFD, static_cast<id_t>(m_descriptor), &info, WEXITED | WNOHANG) == 0 &&
                 info.si_pid == m_id;
    // A given code counts if the signal and not the process itself brought the end.
    if (m_givenCode && (!known || (info.si_code == CLD_KILLED && info.si_status == SIGKILL)))
        return m_givenCode;
    if (known)
        return static_cast<DWORD>(info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status);
    return CodeFromKernel(m_descriptor);
}

void ProcessRecord::Collect() noexcept
{
    {
        const std::lock_guard guard(m_lock);
        if (m_collected)
            return;
        m_collected = true;
        m_exitCode = CollectedCode();
    }
    m_ended.Set();
    if (!m_isChild)
        return;
    Children& children = TheChildren();
    const std::lock_guard guard(children.lock);
    if (const auto found = children.records.find(m_id); found != children.records.end() && found->second.get() == this)
        children.records.erase(found);
}

bool ProcessRecord::Watch() noexcept
{
    const std::lock_guard guard(m_lock);
    if (m_collected || m_self)
        return true;
    m_self = shared_from_this();
    if (Reactor::Instance().Register(m_descriptor, EPOLLIN | EPOLLONESHOT, *this))
        return true;
    m_self.reset();
    return false;
}

void ProcessRecord::OnReady(std::uint32_t) noexcept
{
    Reactor::Instance().Unregister(m_descriptor);
    Collect();
    std::shared_ptr<ProcessRecord> last; // released after the lock
    const std::lock_guard guard(m_lock);
    last.swap(m_self);
}

void ProcessRecord::OnHandleClosed() noexcept
{
    if (m_isChild && TryTake() == Taken::No)
        Watch();
}

} // namespace vlt::posix
