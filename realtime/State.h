// What the whole process shares about scanning: one instance of each item. docs/state.md lists who
// writes which and when.
#pragma once

#include "ARDCommon/NotifySender.h"
#include "ARDCommon/Quarantine.h"
#include "ARDCommon/VlCriticalSection.h"
#include "engine/ArdScanTable.h"
#include "platform/Unique.h"
#include "realtime/ProcessExclusion.h"
#include "realtime/WorkerThread.h"

#include <atomic>
#include <memory>
#include <optional>

namespace vlt
{

// Written by InitKSAPI and StopRealtimeScan alone, on the service-main thread, while no other thread
// uses it: worker threads and the library's callbacks live in between. The published notifier is the
// exception: callbacks can come before there is one.
struct RealtimeState {
    LibraryHandle scanModule;
    AsHandle scanHandle = nullptr;
    ArdScanTable scanTable;

    // Held for every application of the settings; exists from engine start-up to shut-down.
    std::optional<VlCriticalSection> settingsLock;

    // Open from before the library is loaded until it has ended monitoring.
    CQuarantine quarantine;

    // Tells user programs about detections; null when it could not be made. Published for the callbacks
    // until the library has ended them.
    std::unique_ptr<CNotifySender> notifier;
    std::atomic<CNotifySender*> publishedNotifier = nullptr;

    CWorkerThread settingsWatcher;
    CWorkerThread exceptionWatcher;
    CProcessExclusion processExclusion;
    CWorkerThread polling;
    CWorkerThread controlEvents;
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

inline CNotifySender* Notifier()
{
    return Realtime().publishedNotifier.load(std::memory_order_acquire);
}

} // namespace vlt
