#include "service/ServiceInstall.h"

#include "ARDCommon/EventLog.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <cstdio>

namespace
{

// Bytes of the system code page, not wide output: that stops at the first character that the console's
// own code page lacks.
void Print(const WString& text)
{
    std::fputs(vlt::ToNarrow(text).c_str(), stdout);
    std::fflush(stdout);
}

DWORD PrintError(LPCWSTR operation, DWORD code)
{
    const WString message = vlt::SystemMessage(code);
    Print(message.empty() ? vlt::Format(TEXT("%s failed: Unknown error %x\n"), operation, code)
                          : vlt::Format(TEXT("%s failed: %s\n"), operation, message));
    return code;
}

bool IsInstalled(LPCWSTR name)
{
    const vlt::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager)
        return false;
    const vlt::ServiceHandle service(OpenServiceW(manager.Get(), name, SERVICE_QUERY_CONFIG));
    return static_cast<bool>(service);
}

} // namespace

void InstallService(LPCWSTR name, LPCWSTR displayName, DWORD type, DWORD startType, LPCWSTR dependencies,
                    LPCWSTR account, LPCWSTR password)
{
    if (IsInstalled(name))
        return;
    const vlt::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        PrintError(TEXT("OpenSCManager"), GetLastError());
        return;
    }
    // Not quoted: other programs of the suite compare it as it stands.
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const vlt::ServiceHandle service(CreateServiceW(manager.Get(), name, displayName, SERVICE_ALL_ACCESS, type,
                                                    startType, SERVICE_ERROR_NORMAL, path, nullptr, nullptr,
                                                    dependencies, account, password));
    if (!service) {
        PrintError(TEXT("CreateService"), GetLastError());
        return;
    }
    Print(vlt::Format(TEXT("%s Created\n"), name));
}

void RemoveService(LPCWSTR name, bool stopFirst)
{
    const vlt::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        PrintError(TEXT("OpenSCManager"), GetLastError());
        return;
    }
    const vlt::ServiceHandle service(OpenServiceW(manager.Get(), name, DELETE));
    if (!service) {
        PrintError(TEXT("OpenService"), GetLastError());
        return;
    }
    if (stopFirst) {
        // The handle may not carry the right to stop; the removal goes on all the same.
        SERVICE_STATUS status{};
        ControlService(service.Get(), SERVICE_CONTROL_STOP, &status);
        Print(vlt::Format(TEXT("%s stopped\n"), name));
    }
    if (!DeleteService(service.Get())) {
        PrintError(TEXT("DeleteService"), GetLastError());
        return;
    }
    Print(vlt::Format(TEXT("%s removed\n"), name));
}
