// The controller by itself, started and stopped as often as the argument says, or less often on a machine
// that has no time: at once, after a moment, while it reloads or applies settings. Prints "done" and how
// often, unless a start fails or the handles become more.
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/Registry.h"
#include "platform/Unique.h"
#include "realtime/Setreal.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <random>

namespace
{

// Open ones of this process.
long HandleCount()
{
#ifdef _WIN32
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return static_cast<long>(count);
#else
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
#endif
}

void Disturb(unsigned kind, unsigned number)
{
    if (kind == 0)
        vlt::SetRegDword(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, TEXT("InOut"), number);
    const vlt::KernelHandle reload(OpenEventW(EVENT_MODIFY_STATE, FALSE, TEXT("Global\\Event_Reload_Pattern")));
    if (kind == 1)
        SetEvent(reload.Get());
}

} // namespace

int main(int, char** arguments)
{
    constexpr int kSettled = 10;
    constexpr ULONGLONG kLimit = 40000; // ms
    const ULONGLONG begin = GetTickCount64();
    const int cycles = std::atoi(arguments[1]);
    int i = 0;
    std::mt19937 engine(20240229);
    const auto random = [&] { return static_cast<unsigned>(engine()); };
    long before = 0;
    for (; i < cycles && (i <= kSettled || GetTickCount64() - begin < kLimit); ++i) {
        const bool started = InitKSAPI(vlt::ProgramFolder());
        for (unsigned spin = random() % 4096; spin > 0; --spin)
            Sleep(0);
        if (random() % 4 == 0)
            Sleep(random() % 32);
        Disturb(random() % 4, random());
        StopRealtimeScan();
        if (!started)
            return std::puts("no start");
        if (i == kSettled)
            before = HandleCount();
    }
    const long after = HandleCount();
    if (after < before + kSettled)
        std::printf("done %d\n", i);
    else
        std::printf("%ld handles, then %ld\n", before, after);
    return 0;
}
