// Scans files when they are closed after writing, with a fanotify group of notifications: they carry the
// process and the open file. Beside the permission group it also takes back the verdict that the kernel
// keeps for such a file, which a write through a mapping does not.
#pragma once

#include "platform/posix/core/Fd.h"
#include "suite/ArdScan/Ini.h"
#include "suite/ArdScan/ScanContext.h"

#include <functional>
#include <thread>

namespace vlt::scan
{

using posix::Fd;

class CWriteWatch
{
public:
    // forget is called with each written file's descriptor, lost when the kernel dropped notifications;
    // both on the thread of the watch.
    CWriteWatch(CScanContext& context, std::function<void(int)> forget, std::function<void()> lost);
    ~CWriteWatch();
    CWriteWatch(const CWriteWatch&) = delete;
    CWriteWatch& operator=(const CWriteWatch&) = delete;

    bool Ok() const { return static_cast<bool>(m_fan); }
    bool MarkFolder(const char* folder);
    bool MarkWhole(const char* root, MountPolicy policy);

private:
    void Run();
    void Scan(CJudge& judge, int file, std::uint32_t process);

    CScanContext& m_context;
    std::function<void(int)> m_forget;
    std::function<void()> m_lost;
    Fd m_fan;
    Fd m_stopEvent;
    std::thread m_thread;
};

} // namespace vlt::scan
