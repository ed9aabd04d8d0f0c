#include "tools/vlctl/EventSource.h"

#include "platform/Unique.h"
#include "tools/vlctl/Command.h"

namespace vlt::ctl
{
namespace
{

constexpr DWORD ErrorWarningInformation = 7;

WString SourceKey()
{
    return WString(TEXT("SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\")) + DisplayName;
}

void Require(LSTATUS status)
{
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), "event source");
}

} // namespace

void RegisterEventSource(const WString& folder)
{
    const WString messages = folder + TEXT("VLEVENT.dll");
    if (GetFileAttributesW(messages.c_str()) == INVALID_FILE_ATTRIBUTES)
        return;
    RegKey key;
    Require(RegCreateKeyExW(HKEY_LOCAL_MACHINE, SourceKey().c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                            nullptr, key.Receive(), nullptr));
    Require(RegSetValueExW(key.Get(), TEXT("EventMessageFile"), 0, REG_EXPAND_SZ,
                           reinterpret_cast<const BYTE*>(messages.c_str()),
                           static_cast<DWORD>((messages.size() + 1) * sizeof(WCHAR))));
    Require(RegSetValueExW(key.Get(), TEXT("TypesSupported"), 0, REG_DWORD,
                           reinterpret_cast<const BYTE*>(&ErrorWarningInformation), sizeof ErrorWarningInformation));
}

void RemoveEventSource()
{
    const LSTATUS status = RegDeleteKeyExW(HKEY_LOCAL_MACHINE, SourceKey().c_str(), KEY_WOW64_64KEY, 0);
    if (status != static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        Require(status);
}

} // namespace vlt::ctl
