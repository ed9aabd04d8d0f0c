// What the whole process shares about scanning: one instance of each item. docs/state.md lists who
// writes which and when.
#pragma once

#include "ARDCommon/VlCriticalSection.h"
#include "engine/ArdScanTable.h"
#include "platform/Unique.h"

#include <optional>

namespace vlt
{

// Written by InitKSAPI and StopRealtimeScan alone, on the service-main thread, while no other thread
// uses it: worker threads and the library's callbacks live in between.
struct RealtimeState {
    LibraryHandle scanModule;
    AsHandle scanHandle = nullptr;
    ArdScanTable scanTable;

    // Held for every application of the settings; exists from engine start-up to shut-down.
    std::optional<VlCriticalSection> settingsLock;
};

RealtimeState& Realtime();

// The scan library, null when it is not loaded. Its table and handle are for use with it only.
inline HMODULE ScanModule()
{
    return Realtime().scanModule.Get();
}
inline const ArdScanTable& ScanLibrary()
{
    return Realtime().scanTable;
}
inline AsHandle ScanHandle()
{
    return Realtime().scanHandle;
}

} // namespace vlt
