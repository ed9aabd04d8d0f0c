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
    dev_t unaskable = 0; // a file system that cannot say what it has in memory
};

} // namespace vlt::scan
