#include "suite/ArdScan/posix/WriteWatch.h"

#include "suite/ArdScan/posix/Marks.h"
#include "suite/ArdScan/posix/OpenFile.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <vector>

namespace vlt::scan
{

CWriteWatch::CWriteWatch(CScanContext& context, std::function<void(int)> forget, std::function<void()> lost)
    : m_context(context), m_forget(std::move(forget)), m_lost(std::move(lost)),
      m_fan(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_UNLIMITED_MARKS,
                          O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK)),
      m_stopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_fan)
        m_thread = std::thread([this] { Run(); });
}

CWriteWatch::~CWriteWatch()
{
    eventfd_write(m_stopEvent.Get(), 1);
    if (m_thread.joinable())
        m_thread.join();
}

bool CWriteWatch::MarkFolder(const char* folder)
{
    return AddFolderMark(m_fan.Get(), FAN_CLOSE_WRITE, folder);
}

bool CWriteWatch::MarkWhole(const char* root, MountPolicy policy)
{
    return AddWholeMark(m_fan.Get(), FAN_CLOSE_WRITE, root, policy);
}

void CWriteWatch::Run()
{
    CJudge judge(m_context);
    std::array<fanotify_event_metadata, 64> events;
    const auto own = getpid();
    for (;;) {
        pollfd fds[] = {{m_fan.Get(), POLLIN, 0}, {m_stopEvent.Get(), POLLIN, 0}};
        poll(fds, 2, -1);
        if (fds[1].revents)
            return;
        const ssize_t size = read(m_fan.Get(), events.data(), sizeof(events));
        if (size <= 0)
            continue;
        // All verdicts are taken back before the first scan, which may take long.
        const std::size_t count = static_cast<std::size_t>(size) / sizeof(fanotify_event_metadata);
        std::vector<std::pair<Fd, std::int32_t>> files;
        for (std::size_t i = 0; i < count; ++i) {
            if (events[i].fd < 0) {
                m_context.status.Count(Counter::Lost);
                m_lost();
                continue;
            }
            m_forget(events[i].fd);
            files.emplace_back(Fd(events[i].fd), events[i].pid);
        }
        for (const auto& [file, process] : files)
            if (process != own)
                Scan(judge, file.Get(), static_cast<std::uint32_t>(process));
        judge.Release();
    }
}

void CWriteWatch::Scan(CJudge& judge, int file, std::uint32_t process)
{
    const Snapshot& now = judge.Refresh();
    struct stat info {
    };
    if (!now.policy.Wants(AS_DIRECTION_WRITE) || fstat(file, &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_nlink == 0)
        return;
    if (now.processes.Contains(process)) {
        m_context.status.Count(Counter::Excluded);
        return;
    }
    const HostPath path = PathOfOpenFile(file);
    const WString name = ToWindows(path);
    if (!judge.WantsName(name) || !judge.WantsSize(static_cast<std::uint64_t>(info.st_size)))
        return;
    off_t offset = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) -> std::ptrdiff_t {
        ssize_t count;
        do
            count = pread(file, buffer.data(), buffer.size(), offset);
        while (count < 0 && errno == EINTR);
        offset += count > 0 ? count : 0;
        return count;
    };
    Threat threat{};
    CHostFile infected;
    if (judge.Scan(static_cast<std::uint64_t>(info.st_size), read, threat) == Verdict::Infected &&
        !m_context.IsInQuarantine(name) && infected.Borrow(file))
        judge.Report(threat, infected, path, name, {process, AS_DIRECTION_WRITE, false, false});
    m_context.status.Scanned(path.native());
}

} // namespace vlt::scan
