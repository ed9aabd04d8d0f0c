#include "tools/vlctl/ServiceManager.h"

#include "platform/Format.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <array>

namespace vlt::ctl
{

ServiceHandle OpenServiceManager(DWORD access)
{
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
    if (!manager) {
        const DWORD error = GetLastError();
        if (error == ERROR_ACCESS_DENIED)
            FailWith(error, "service manager");
        throw CommandError(ExitNoService, Format("service manager: %s (%u)", SystemText(error), error),
                           "see whether the machine's service manager runs");
    }
    return manager;
}

ServiceHandle OpenInstalledService(DWORD access)
{
    const ServiceHandle manager = OpenServiceManager(SC_MANAGER_CONNECT);
    ServiceHandle service(OpenServiceW(manager.Get(), ServiceName, access));
    if (!service)
        FailWith(GetLastError(), Utf8(ServiceName));
    return service;
}

SERVICE_STATUS_PROCESS QueryService(const ServiceHandle& service)
{
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof status,
                              &needed))
        FailWith(GetLastError(), "query");
    return status;
}

WString InstalledProgram()
{
    const ServiceHandle service = OpenInstalledService(SERVICE_QUERY_CONFIG);
    DWORD needed = 0;
    QueryServiceConfigW(service.Get(), nullptr, 0, &needed);
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        FailWith(GetLastError(), "configuration");
    std::vector<ULONG_PTR> buffer(needed / sizeof(ULONG_PTR) + 1);
    auto* const config = reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer.data());
    if (!QueryServiceConfigW(service.Get(), config, needed, &needed))
        FailWith(GetLastError(), "configuration");
    WString program = config->lpBinaryPathName ? WString(config->lpBinaryPathName) : WString();
    if (program.size() >= 2 && program.front() == '"' && program.back() == '"')
        program = program.substr(1, program.size() - 2);
    return program;
}

bool IsServiceInstalled()
{
    const ServiceHandle manager = OpenServiceManager(SC_MANAGER_CONNECT);
    const ServiceHandle service(OpenServiceW(manager.Get(), ServiceName, SERVICE_QUERY_STATUS));
    if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
        FailWith(GetLastError(), Utf8(ServiceName));
    return static_cast<bool>(service);
}

const char* ServiceStateName(DWORD state)
{
    static constexpr std::array names{"unknown", "stopped",          "start pending", "stop pending",
                                      "running", "continue pending", "pause pending", "paused"};
    return state < names.size() ? names[state] : names[0];
}

} // namespace vlt::ctl
