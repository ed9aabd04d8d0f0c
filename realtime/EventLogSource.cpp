#include "realtime/EventLogSource.h"

#include "ARDCommon/EventLog.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Unique.h"

namespace
{

constexpr DWORD kErrorWarningInformation = 7;

} // namespace

bool RegisterEventLogSource()
{
    bool complete = true;
    const auto check = [&complete](LSTATUS status) {
        complete = complete && status == ERROR_SUCCESS;
        return status == ERROR_SUCCESS;
    };

    const WString name =
        WString(TEXT("SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\")) + vlt::kServiceDisplayName;
    vlt::RegKey key;
    if (!check(RegCreateKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                               nullptr, key.Receive(), nullptr)))
        VLT_TRACE(40, "***  Could not create the registry key.");

    // The odd size, half of the terminator, is what installed systems have.
    const WString file = vlt::ProgramFolder() + TEXT("VLEVENT.dll");
    if (!check(RegSetValueExW(key.Get(), TEXT("EventMessageFile"), 0, REG_EXPAND_SZ,
                              reinterpret_cast<const BYTE*>(file.c_str()), static_cast<DWORD>(file.size() * 2 + 1))))
        VLT_TRACE(40, "***  Could not set the event message file.");

    const DWORD types = kErrorWarningInformation;
    if (!check(RegSetValueExW(key.Get(), TEXT("TypesSupported"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&types),
                              sizeof(types))))
        VLT_TRACE(40, "***  Could not set the supported types.");
    return complete;
}
