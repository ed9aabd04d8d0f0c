// VlProxy, the stand-in for the suite's proxy: a process that the scanner is to leave alone. It says where it
// is (VlProxyFormat.h), then waits until it is interrupted or ended. Exit codes: 0 interrupted, 1 another one
// runs, 2 it cannot make itself known.
#include "platform/Unique.h"
#include "suite/Channel/Interrupt.h"
#include "suite/Channel/Text.h"
#include "suite/VlProxy/VlProxyFormat.h"

#include <cstdio>

namespace
{

using namespace vlt;
using namespace vlt::proxy;

int Run()
{
    const HANDLE interrupt = suite::InterruptEvent();
    const KernelHandle mutex(CreateMutexW(nullptr, FALSE, kRunningMutex));
    if (!mutex)
        suite::FailWith(GetLastError(), "mutex");
    if (WaitForSingleObject(mutex.Get(), 0) == WAIT_TIMEOUT) {
        std::fprintf(stderr, "VlProxy: another one is running\n");
        return 1;
    }
    const KernelHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                  sizeof(VlpxInformation), kInformationSection));
    const MappedView view(section ? MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, sizeof(VlpxInformation))
                                  : nullptr);
    if (!view)
        suite::FailWith(GetLastError(), "section");
    *static_cast<VlpxInformation*>(view.Get()) = {sizeof(VlpxInformation), {}, GetCurrentProcessId(), 0};
    std::printf("VlProxy: running as process %lu\n", static_cast<unsigned long>(GetCurrentProcessId()));
    std::fflush(stdout);
    WaitForSingleObject(interrupt, INFINITE);
    ReleaseMutex(mutex.Get());
    return 0;
}

} // namespace

int main()
try {
    return Run();
} catch (const std::exception& error) {
    std::fprintf(stderr, "VlProxy: %s\n", error.what());
    return 2;
}
