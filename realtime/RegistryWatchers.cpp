#include "realtime/RegistryWatchers.h"

#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/ServiceLog.h"
#include "ARDCommon/VlDebug.h"
#include "realtime/Settings.h"
#include "realtime/State.h"

namespace
{

struct Watched {
    const WCHAR* key;
    const char* entered;
    const WCHAR* called; // for the text log
    const char* noKey;
    const char* waiting; // null: not traced
    const char* changed;
    const char* left;
};

constexpr Watched kSettings{vlt::kRealTimeScanKey,
                            "[Enter] WhenRegChange()",
                            TEXT("WhenRegChange Called!\r\n"),
                            "*** WhenRegChange() - Can not open RealtimeScan sub key!",
                            nullptr,
                            "*** WhenRegChange() - Call RealtimeSetting()",
                            "[Leave] WhenRegChange()"};
constexpr Watched kExceptions{vlt::kExceptionKey,
                              "[Enter] WhenExceptionRegChange()",
                              TEXT("WhenExceptionRegChange Called!\r\n"),
                              "*** WhenExceptionRegChange() - Can not open Exception sub key!",
                              "Waiting to change Excpetion Key...",
                              "*** WhenExceptionRegChange() - Call RealtimeSetting()",
                              "[Leave] WhenExceptionRegChange()"};

// False when the watcher is to end. A key that has been deleted is not armed, and the wait is then for
// the end.
bool AwaitChange(CWorkerThread& self, const Watched& watched, HKEY key, HANDLE wake)
{
    if (!self.IsToRun())
        return false;
    RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, wake, TRUE);
    if (watched.waiting != nullptr)
        VLT_TRACE(40, watched.waiting);
    return WaitForSingleObject(wake, INFINITE) == WAIT_OBJECT_0 && self.IsToRun();
}

unsigned Watch(CWorkerThread& self, const Watched& watched)
{
    VLT_TRACE(40, watched.entered);
    WriteServiceLog(watched.called);
    vlt::RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, watched.key, 0, KEY_READ | KEY_WOW64_32KEY, key.Receive()) != ERROR_SUCCESS) {
        VLT_TRACE(40, watched.noKey);
        return 0;
    }
    const vlt::KernelHandle wake(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    // Shown before the worker looks whether it is still to run: the end is announced the other way round.
    self.SetWakeEvent(wake.Get());
    while (AwaitChange(self, watched, key.Get(), wake.Get())) {
        const VlLock lock(*vlt::Realtime().settingsLock);
        VLT_TRACE(40, watched.changed);
        RealtimeSetting();
    }
    self.SetWakeEvent(nullptr);
    key.Reset();
    VLT_TRACE(40, watched.left);
    return 0;
}

} // namespace

unsigned WhenRegChange(CWorkerThread& self)
{
    return Watch(self, kSettings);
}

unsigned WhenExceptionRegChange(CWorkerThread& self)
{
    return Watch(self, kExceptions);
}
