// What the reference scan library says of itself: its settings ArdScan.ini and its status file, which
// suite/ArdScan/README.md describes. Other scan libraries have neither.
#pragma once

#include "suite/ArdScan/Ini.h"
#include "tools/vlctl/Answer.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

struct EngineReport {
    std::string mode = "unknown"; // as the engine names it
    std::string reason;           // why it is not prevention, or why nothing is known
    std::vector<std::string> folders;
    Json counters; // null when there is no report
};

// Of the service's process; what an earlier one has left is not taken for it.
EngineReport ReadEngineReport(const WString& folder, DWORD serviceProcess);

// Defaults when there is no ini.
scan::EngineSettings EngineSettingsIn(const WString& folder);

} // namespace vlt::ctl
