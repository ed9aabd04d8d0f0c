// What one worker of a fanotify group has of its own.
#pragma once

#include "suite/ArdScan/posix/FanotifyGroup.h"

namespace vlt::scan
{

struct CFanotifyGroup::Worker {
    Worker(CScanContext& context, Slot& own) : judge(context), slot(own) {}

    CJudge judge;
    Slot& slot;
    bool lead = false;
};

} // namespace vlt::scan
