// An installation of the built service in the machine root, for the figures that need it running.
#pragma once

#include "platform/Unique.h"

#include <filesystem>
#include <string>

namespace bench
{

class ServiceFixture
{
public:
    // Lays the program folder out in drives/c/Veltrano of VLT_ROOT, guarding `folder`, and registers
    // the service. Aborts with a message when something is missing. The scan library is the built one, or
    // that one of the build's bin folder.
    explicit ServiceFixture(const std::filesystem::path& folder, const char* scanLibrary = "ArdScan.dll");
    ~ServiceFixture(); // stops the service and removes the registration

    ServiceFixture(const ServiceFixture&) = delete;
    ServiceFixture& operator=(const ServiceFixture&) = delete;

    void Start(); // returns when the service is running
    void Stop();  // returns when it has stopped
    DWORD ProcessId() const;

private:
    void WaitFor(DWORD state);

    vlt::ServiceHandle m_service;
};

// A new folder below /tmp on a tmpfs of this process's own mount namespace; needs root.
std::filesystem::path PrivateTmpfs();

} // namespace bench
