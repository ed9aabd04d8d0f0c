// Starting the process of a service.
#pragma once

#include "platform/posix/service/ServiceStore.h"

#include <vector>

namespace vlt::posix::service
{

// Runs the program of the configured path, which is a command line, as a process of its own session
// with the starter's standard streams, and returns when its dispatcher has connected.
//
// ERROR_FILE_NOT_FOUND and the like when the program cannot be run; ERROR_SERVICE_REQUEST_TIMEOUT
// when it ends without connecting, or does not connect within 30 seconds and is killed.
DWORD StartProcess(const ServiceConfig& config, const std::u16string& packedArguments);

} // namespace vlt::posix::service
