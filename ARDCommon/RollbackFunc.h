// When a new pattern is rolled back.
//
// The updater puts a new pattern on probation. While that lasts the service counts, in the registry
// (RollbackState.h), how its runs end: enough normal stops prove the pattern good, enough abnormal ends in
// a row condemn it, and the start that finds the last of them puts the pattern aside (RollbackUtil.h)
// before the engine loads it. Each rollback adds a line to Log\YYYYMMDD.UPG in the application folder:
//
//   YYYYMMDD|hhmm|2|3|number of the pattern that was in force
//
// A start that is killed after the pattern was put aside, but before that was noted, leaves the probation
// on: the next abnormal start finds the pattern gone, or too few left, and the service runs on the
// previous one all the same.
#pragma once

#include "platform/win32.h"

// Stateless. Registry failures are traced where it matters and never stop the service.
class CRollbackFunc
{
public:
    // Once at the service's start, before the engine is started: marks the service as running.
    void StartCheck() const;

    // At a normal stop: marks it as stopped. False when no pattern is on probation, or when the counters
    // could not be written.
    bool StopNotice() const;

    // The line, cut to 519 bytes, is in the system code page. Readers may have the file open meanwhile.
    bool WriterRollbackLog(const SYSTEMTIME& localTime, const std::string& number) const;

private:
    void RollbackRestored() const;
    void RollbackCurrent() const;
};
