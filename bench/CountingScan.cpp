// A scan library that does nothing but count the configurations it is given, in a file that the benchmark maps.
#include "engine/ArdScanAbi.h"

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <linux/futex.h>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#define AS_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

std::atomic<std::uint32_t>* Counter()
{
    static auto* const counter = [] {
        const std::string path = std::string(std::getenv("VLT_ROOT")) + "/configurations";
        const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
        void* const view = mmap(nullptr, sizeof(std::uint32_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        close(file);
        return view == MAP_FAILED ? nullptr : static_cast<std::atomic<std::uint32_t>*>(view);
    }();
    return counter;
}

} // namespace

AS_EXPORT AsHandle WINAPI ASInitScanW(std::uint32_t, AsInitRecord*, std::uint32_t)
{
    return reinterpret_cast<AsHandle>(std::uintptr_t{1});
}
AS_EXPORT std::int32_t WINAPI ASGetLastError(AsHandle)
{
    return 0;
}
AS_EXPORT std::int32_t WINAPI ASSetConfigW(AsHandle, const void*)
{
    if (auto* const counter = Counter()) {
        counter->fetch_add(1);
        syscall(SYS_futex, counter, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    }
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASStartScan(AsHandle)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASStopScan(AsHandle, std::uint32_t)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASGetEngineInfo(AsHandle, AsEngineInfo*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASGetEngineInformation(AsHandle, AsEngineInformation*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASGetPatternInformation(AsHandle, AsPatternInformation*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASGetSpyWarePatternVersion(AsHandle, std::uint32_t*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASSetExceptionFilePathW(AsHandle, const WCHAR*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASSetExceptionFolderPathW(AsHandle, const WCHAR*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASGetEngineDefaultExtListW(AsHandle, WCHAR* buffer, std::uint32_t* size)
{
    buffer[0] = '*';
    buffer[1] = 0;
    *size = 2;
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASReloadPatternW(AsHandle, std::uint32_t, const WCHAR*)
{
    return 1;
}
AS_EXPORT std::int32_t WINAPI ASDeInitScan(AsHandle)
{
    return 1;
}

// Never called, but the service takes no library without them.
AS_EXPORT std::int32_t WINAPI ASScanFileW(AsHandle, const WCHAR*)
{
    return 0;
}
AS_EXPORT std::int32_t WINAPI ASManualActionW(AsHandle, const WCHAR*, std::uint32_t)
{
    return 0;
}
AS_EXPORT std::int32_t WINAPI ASGetFirstVirusInfo(AsHandle, std::uint64_t*, AsVirusInfo*)
{
    return 0;
}
AS_EXPORT std::int32_t WINAPI ASGetNextVirusInfo(AsHandle, std::uint64_t*, AsVirusInfo*)
{
    return 0;
}
AS_EXPORT std::int32_t WINAPI ASGetVirusInfo(AsHandle, std::uint32_t, AsVirusInfo*)
{
    return 0;
}
