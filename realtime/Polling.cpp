#include "realtime/Polling.h"

#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/VlDebug.h"
#include "realtime/SecurityCentre.h"
#include "realtime/Settings.h"

namespace
{

constexpr DWORD kDefaultMinutes = 60;
constexpr DWORD kMinute = 60000; // ms

DWORD PollingMinutes()
{
    vlt::RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, 0, KEY_READ | KEY_WRITE | KEY_WOW64_32KEY,
                      key.Receive()) != ERROR_SUCCESS) {
        VLT_TRACE(20, "Error: RegOpenKeyEx err(%d)", GetLastError());
        return kDefaultMinutes;
    }
    DWORD minutes = 0;
    DWORD type = REG_NONE;
    DWORD size = sizeof minutes;
    const LSTATUS status =
        RegQueryValueExW(key.Get(), TEXT("PollingTime"), nullptr, &type, reinterpret_cast<LPBYTE>(&minutes), &size);
    return status == ERROR_SUCCESS && type == REG_DWORD && size == sizeof minutes ? minutes : kDefaultMinutes;
}

} // namespace

unsigned PollingStatusThread(CWorkerThread& self)
{
    VLT_TRACE(40, "Start PollingStatusThread");
    vlt::KernelHandle stop(CreateEventW(nullptr, FALSE, FALSE, TEXT("EVENT_POLLINGSTOP")));
    self.SetWakeEvent(stop.Get());
    const DWORD minutes = PollingMinutes();
    VLT_TRACE(40, "Polling time ( %d )min", minutes);
    while (WaitForSingleObject(stop.Get(), minutes * kMinute) == WAIT_TIMEOUT) {
        VLT_TRACE(40, "Wakeup PollingStatusThread");
        ReportProtection();
    }
    self.SetWakeEvent(nullptr);
    stop.Reset();
    VLT_TRACE(40, "End PollingStatusThread");
    return 0;
}
