// Keeping the service alive.
#pragma once

#include "tools/vlctl/Command.h"

#include <functional>

namespace vlt::ctl
{

struct SuperviseSettings {
    std::function<SERVICE_STATUS_PROCESS()> start;        // until it runs or has ended
    std::function<SERVICE_STATUS_PROCESS()> awaitStopped; // once its process has ended
    unsigned delaySeconds;
};

// Returns when the service was stopped in order, or when this program is to end; the service is then left alone.
void Supervise(const SuperviseSettings& settings);

} // namespace vlt::ctl
