// Asking the running service to reload its patterns, and hearing what became of it.
#pragma once

#include "platform/win32.h"

#include <string>

namespace vlt::ctl
{

enum class ReloadOutcome {
    Reloaded,
    Failed,     // the service goes on with the patterns that it had
    NotRunning, // nobody listens for the event
    NoAnswer,
};

struct ReloadResult {
    ReloadOutcome outcome;
    std::string text; // of a failure, as the service reported it
};

// Signals the service's event and waits for its answer. Throws CommandError.
ReloadResult ReloadPatterns(const char* event, DWORD milliseconds);

} // namespace vlt::ctl
