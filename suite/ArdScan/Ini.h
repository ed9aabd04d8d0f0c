// The engine's own settings, ArdScan.ini. Any bytes are accepted: what is not understood is passed over
// and what is out of range has its default. The keys are described in README.md.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vlt::scan
{

enum class LatePolicy { Allow, Deny };
enum class MountPolicy { Automatic, Never, WholeFileSystem };

struct EngineSettings {
    std::vector<std::string> folders; // Windows or host paths, UTF-8, in the order of their numbers
    MountPolicy mounts = MountPolicy::Automatic;
    unsigned workers = 4;
    unsigned answerTimeout = 5000; // milliseconds
    LatePolicy late = LatePolicy::Allow;
    bool writeStatus = true;
    std::string statusFile; // empty: ArdScan.status beside the ini
};

EngineSettings ReadEngineSettings(std::string_view text);

} // namespace vlt::scan
