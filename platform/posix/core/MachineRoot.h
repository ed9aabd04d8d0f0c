// The folder that holds everything Windows keeps in the machine: VLT_ROOT, or /var/lib/veltrano for
// root, or the user's state folder otherwise. Read once per process.
#pragma once

#include <string>

namespace vlt::posix
{

// Absolute, without a trailing slash. Made with its sub-folders at the first call.
const std::string& MachineRoot();

// A sub-folder of the machine root: registry, objects, drives, services, eventlog.
std::string MachineFolder(const char* name);

} // namespace vlt::posix
