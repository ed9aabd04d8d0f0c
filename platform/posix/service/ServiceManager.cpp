// The manager's side of service control.
#include "platform/posix/core/Error.h"
#include "platform/posix/core/HandleTable.h"
#include "platform/posix/registry/KeyName.h"
#include "platform/posix/service/ControlChannel.h"
#include "platform/posix/service/ServiceProcess.h"
#include "platform/posix/service/ServiceStore.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <time.h>

namespace
{

using namespace vlt::posix;
using namespace vlt::posix::service;

class ServiceManagerObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::ServiceManager;
    explicit ServiceManagerObject(DWORD rights) noexcept : Object(kKind), access(rights) {}
    const DWORD access;
};

class ServiceObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Service;
    ServiceObject(ServiceFolder opened, WStringView serviceName, DWORD rights)
        : Object(kKind), folder(std::move(opened)), name(serviceName), access(rights)
    {
    }
    ServiceFolder folder;
    const WString name;
    const DWORD access;
};

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

BOOL Result(DWORD error)
{
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

// The object if the handle has the right, else null with the last error.
template <typename T>
Pinned<T> PinWith(SC_HANDLE handle, DWORD right)
{
    auto object = Pin<T>(reinterpret_cast<HANDLE>(handle));
    if (object && (object->access & right) != right) {
        SetLastError(ERROR_ACCESS_DENIED);
        return Pinned<T>();
    }
    return object;
}

template <typename T>
SC_HANDLE Insert(std::unique_ptr<T> object)
{
    return reinterpret_cast<SC_HANDLE>(InsertHandle(std::move(object)));
}

DWORD MapGeneric(DWORD access, DWORD all)
{
    constexpr DWORD GenericAll = 0x10000000u;
    return (access & (GenericAll | GENERIC_READ | GENERIC_WRITE)) != 0 ? access | all : access;
}

bool HasText(LPCWSTR text)
{
    return text && *text;
}

// Names and paths are lines of the store.
bool IsStorable(WStringView text, std::size_t limit)
{
    return !text.empty() && text.size() <= limit && text.find_first_of(u"\n\r") == WStringView::npos;
}

SERVICE_STATUS WithoutProcess(const SERVICE_STATUS_PROCESS& status)
{
    return {status.dwServiceType,
            status.dwCurrentState,
            status.dwControlsAccepted,
            status.dwWin32ExitCode,
            status.dwServiceSpecificExitCode,
            status.dwCheckPoint,
            status.dwWaitHint};
}

// A process that has reported its end may need a moment to go.
bool WaitUntilEnded(const ServiceFolder& folder)
{
    for (int i = 0; i < 3000 && folder.IsRunning(); ++i) {
        if (folder.Query().dwCurrentState != SERVICE_STOPPED)
            return false;
        const timespec pause{0, 10'000'000};
        nanosleep(&pause, nullptr);
    }
    return !folder.IsRunning();
}

DWORD Start(const ServiceObject& service, DWORD argc, LPCWSTR* argv)
{
    const std::u16string arguments = PackArguments(argv ? argc : 0, argv);
    if (arguments.size() * sizeof(WCHAR) > MaxArgumentBytes)
        return ERROR_INVALID_PARAMETER;
    const Fd lock = service.folder.LockStart();
    if (!lock && errno != ENOENT)
        return ErrorFromErrno(errno);
    ServiceConfig config;
    if (!lock || service.folder.ReadConfig(config) != ERROR_SUCCESS || service.folder.IsMarked())
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (config.startType == SERVICE_DISABLED)
        return ERROR_SERVICE_DISABLED;
    if (!WaitUntilEnded(service.folder))
        return ERROR_SERVICE_ALREADY_RUNNING;
    return StartProcess(config, arguments);
}

} // namespace

SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access)
{
    if (HasText(machine) || (HasText(database) && WStringView(database) != TEXT("ServicesActive"))) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    return Insert(std::make_unique<ServiceManagerObject>(MapGeneric(access, SC_MANAGER_ALL_ACCESS)));
}

SC_HANDLE CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR displayName, DWORD access, DWORD type,
                         DWORD startType, DWORD errorControl, LPCWSTR path, LPCWSTR group, LPDWORD tag,
                         LPCWSTR dependencies, LPCWSTR account, LPCWSTR password)
{
    const auto from = PinWith<ServiceManagerObject>(manager, SC_MANAGER_CREATE_SERVICE);
    if (!from)
        return nullptr;
    DWORD error = ERROR_SUCCESS;
    if (HasText(group) || tag || HasText(dependencies) || HasText(account) || HasText(password) ||
        (type & ~SERVICE_INTERACTIVE_PROCESS) != SERVICE_WIN32_OWN_PROCESS)
        error = ERROR_NOT_SUPPORTED;
    else if (!name || !IsStorable(name, 256) || WStringView(name).find_first_of(u"/\\") != WStringView::npos)
        error = ERROR_INVALID_NAME;
    else if (!path || !IsStorable(path, 32767) || (HasText(displayName) && !IsStorable(displayName, 256)) ||
             startType < SERVICE_AUTO_START || startType > SERVICE_DISABLED || errorControl > 3)
        error = ERROR_INVALID_PARAMETER;
    ServiceFolder folder;
    if (error == ERROR_SUCCESS)
        error = ServiceFolder::Create(
            {name, HasText(displayName) ? displayName : name, path, type, startType, errorControl}, folder);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return nullptr;
    }
    return Insert(std::make_unique<ServiceObject>(std::move(folder), name, MapGeneric(access, SERVICE_ALL_ACCESS)));
}

SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access)
{
    const auto from = PinWith<ServiceManagerObject>(manager, SC_MANAGER_CONNECT);
    if (!from)
        return nullptr;
    ServiceFolder folder;
    const DWORD error = HasText(name) ? ServiceFolder::Open(name, folder) : ERROR_INVALID_NAME;
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return nullptr;
    }
    return Insert(std::make_unique<ServiceObject>(std::move(folder), name, MapGeneric(access, SERVICE_ALL_ACCESS)));
}

BOOL StartServiceW(SC_HANDLE service, DWORD argc, LPCWSTR* argv)
{
    const auto object = PinWith<ServiceObject>(service, SERVICE_START);
    return object ? Result(Start(*object, argc, argv)) : FALSE;
}

BOOL ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status)
{
    DWORD right = 0;
    switch (control) {
    case SERVICE_CONTROL_STOP:
        right = SERVICE_STOP;
        break;
    case SERVICE_CONTROL_PAUSE:
    case SERVICE_CONTROL_CONTINUE:
        right = SERVICE_PAUSE_CONTINUE;
        break;
    case SERVICE_CONTROL_INTERROGATE:
        right = SERVICE_INTERROGATE;
        break;
    default:
        right = control >= 128 && control <= 255 ? SERVICE_USER_DEFINED_CONTROL : 0u;
    }
    const auto object = PinWith<ServiceObject>(service, right);
    if (!object)
        return FALSE;
    if (!status || right == 0)
        return Fail(ERROR_INVALID_PARAMETER);
    *status = WithoutProcess(object->folder.Query());
    if (status->dwCurrentState == SERVICE_STOPPED)
        return Fail(ERROR_SERVICE_NOT_ACTIVE);
    return Result(SendControl(object->folder.Get(), control, *status));
}

BOOL QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD size, LPDWORD needed)
{
    const auto object = PinWith<ServiceObject>(service, SERVICE_QUERY_STATUS);
    if (!object)
        return FALSE;
    if (level != SC_STATUS_PROCESS_INFO || !needed)
        return Fail(ERROR_INVALID_PARAMETER);
    const SERVICE_STATUS_PROCESS status = object->folder.Query();
    *needed = sizeof(status);
    if (!buffer || size < sizeof(status))
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, &status, sizeof(status));
    return TRUE;
}

BOOL QueryServiceConfigW(SC_HANDLE service, LPQUERY_SERVICE_CONFIGW config, DWORD size, LPDWORD needed)
{
    const auto object = PinWith<ServiceObject>(service, SERVICE_QUERY_CONFIG);
    if (!object)
        return FALSE;
    if (!needed)
        return Fail(ERROR_INVALID_PARAMETER);
    ServiceConfig stored;
    if (const DWORD error = object->folder.ReadConfig(stored))
        return Fail(error);
    const WString texts[] = {stored.path, WString(), WString(1, u'\0'), TEXT("LocalSystem"), stored.displayName};
    std::size_t total = sizeof(*config);
    for (const WString& text : texts)
        total += (text.size() + 1) * sizeof(WCHAR);
    *needed = static_cast<DWORD>(total);
    if (!config || size < total)
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    *config = {};
    config->dwServiceType = stored.type;
    config->dwStartType = stored.startType;
    config->dwErrorControl = stored.errorControl;
    LPWSTR* const fields[] = {&config->lpBinaryPathName, &config->lpLoadOrderGroup, &config->lpDependencies,
                              &config->lpServiceStartName, &config->lpDisplayName};
    auto* at = reinterpret_cast<WCHAR*>(config + 1);
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        *fields[i] = at;
        at += texts[i].copy(at, texts[i].size());
        *at++ = 0;
    }
    return TRUE;
}

BOOL DeleteService(SC_HANDLE service)
{
    const auto object = PinWith<ServiceObject>(service, DELETE);
    return object ? Result(object->folder.Remove(object->name)) : FALSE;
}

BOOL CloseServiceHandle(SC_HANDLE handle)
{
    return CloseHandleOfKind(reinterpret_cast<HANDLE>(handle),
                             MaskOf(ObjectKind::ServiceManager) | MaskOf(ObjectKind::Service));
}
