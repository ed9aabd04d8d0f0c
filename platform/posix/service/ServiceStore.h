// Installed services: folders below <machine root>/services.
//
//   s<name>/          the name as the registry writes its file names
//     config          name, display name, types, path: lines "key=value", UTF-8
//     status          the last status reported, one record changed by one write
//     process         locked by the running service's process for its life
//     start           locked while the service is being started or removed
//     control         socket of the running service
//     deleted         there once a running service has been marked for deletion
//
// Whether a service runs is whether `process` is locked: the kernel drops the lock with the process,
// so a killed service never reads as running, whatever its last status says.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/win32.h"

#include <string>

namespace vlt::posix::service
{

struct ServiceConfig {
    WString name;
    WString displayName;
    WString path;
    DWORD type = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
};

// The calls return a Windows code, ERROR_SUCCESS when done.
class ServiceFolder
{
public:
    // ERROR_SERVICE_DOES_NOT_EXIST when absent. A service that was marked for deletion and has ended
    // since is removed first.
    static DWORD Open(WStringView name, ServiceFolder& folder);
    // ERROR_SERVICE_EXISTS, or ERROR_SERVICE_MARKED_FOR_DELETE while a deleted one still runs.
    static DWORD Create(const ServiceConfig& config, ServiceFolder& folder);

    // ERROR_SERVICE_MARKED_FOR_DELETE when the service has been removed since the folder was opened.
    DWORD ReadConfig(ServiceConfig& config) const;

    // Removes the service, or marks it when it runs.
    DWORD Remove(WStringView name);

    bool IsMarked() const;
    bool IsRunning() const;
    SERVICE_STATUS_PROCESS Query() const;

    // For the service's own process.
    bool LockProcess(Fd& lock) const; // false when another process runs the service
    DWORD WriteStatus(const SERVICE_STATUS& status) const;
    // Removes a service that was marked while it ran; its lock has been dropped.
    void RemoveIfMarked(WStringView name) const;

    // Held while the service is started. Empty with errno.
    Fd LockStart() const;

    int Get() const noexcept { return m_folder.Get(); }

private:
    Fd m_folder;
};

} // namespace vlt::posix::service
