// The files of a pattern rollback.
//
// Pattern files are ptf$qrv.NNN in the application folder; the pattern library takes the newest. One that
// is rolled back bears the prefix "rb_", which hides it from the library; of those, only the latest is
// kept. Both moves are a single rename each, and the record in the registry (RollbackState.h) follows
// it: a process that is killed in between leaves every file, under its old or its new name.
//
// Names are file names without a folder, in the system code page. Failures are traced; nothing throws.
#pragma once

#include "platform/win32.h"

class CRollbackUtil
{
public:
    // The folder of the pattern files, ending in a backslash. Read at the first use and kept, so a move of
    // the installation is seen by the next run.
    static const std::string& PatternFolder();

    // Puts a pattern aside, records that and deletes those put aside before. False when it was not moved.
    static bool Rollback(const std::string& name, const std::string& number);

    // Puts the pattern that is recorded back and clears the record; false with empty texts when it was not
    // moved. Whoever calls it records what it gives as restored.
    static bool Restore(std::string& name, std::string& number);

    // Deletes all that were put aside but the recorded one.
    static void Purge();

    // The number of pattern files that are not put aside.
    static int CountPatternFile();

    static void SaveRollbackInfo(const std::string& name, const std::string& number);
    static void ClearRollbackInfo();

    // True when both are recorded.
    static bool GetRollbackInfo(std::string& name, std::string& number);

    // What was restored; the record is cleared in any case. True when both were recorded.
    static bool GetAndClearRestoredInfo(std::string& name, std::string& number);
};
