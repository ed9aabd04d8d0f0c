#include "suite/ArdScan/ProcessList.h"

#include <algorithm>

#ifdef _WIN32
#include "platform/win32.h"
#else
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace vlt::scan
{

#ifdef _WIN32

class CProcessList::Process
{
public:
    explicit Process(std::uint32_t id) : handle(OpenProcess(SYNCHRONIZE, FALSE, id)) {}
    ~Process()
    {
        if (handle)
            CloseHandle(handle);
    }
    Process(const Process&) = delete;
    bool Exists() const { return handle != nullptr; }
    HANDLE handle;
};

bool CProcessList::Runs(const Process& process)
{
    return WaitForSingleObject(process.handle, 0) == WAIT_TIMEOUT;
}

#else

class CProcessList::Process
{
public:
    explicit Process(std::uint32_t id) : fd(static_cast<int>(syscall(SYS_pidfd_open, id, 0))) {}
    ~Process()
    {
        if (fd >= 0)
            close(fd);
    }
    Process(const Process&) = delete;
    bool Exists() const { return fd >= 0; }
    int fd;
};

// Signal 0 reaches a process until it is reaped; until then its number is its own.
bool CProcessList::Runs(const Process& process)
{
    return syscall(SYS_pidfd_send_signal, process.fd, 0, nullptr, 0) == 0;
}

#endif

bool CProcessList::Add(std::uint32_t processId)
{
    if (processId == 0)
        return false;
    auto process = std::make_shared<const Process>(processId);
    if (!process->Exists())
        return false;
    std::erase_if(m_entries, [&](const Entry& entry) { return entry.id == processId || !Runs(*entry.process); });
    m_entries.push_back({processId, std::move(process)});
    return true;
}

bool CProcessList::Remove(std::uint32_t processId)
{
    return std::erase_if(m_entries, [&](const Entry& entry) { return entry.id == processId; }) != 0;
}

bool CProcessList::Contains(std::uint32_t processId) const
{
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [&](const Entry& entry) { return entry.id == processId && Runs(*entry.process); });
}

} // namespace vlt::scan
