// What the quarantine commands share.
#pragma once

#include "tools/vlctl/Command.h"
#include "tools/vlctl/QuarantineList.h"

#include <unordered_map>
#include <vector>

namespace vlt::ctl
{

struct QuarantineSettings {
    std::string folder;        // of the store
    std::string programFolder; // of the service, when not the registered one
    std::vector<std::string> ids;
    std::string to; // target of a restore
    bool force = false;
    bool keep = false;
    bool all = false;
    bool yes = false;

    QuarantineStore Store() const;
};

void RestoreQuarantined(const QuarantineSettings& settings);
void RescanQuarantined(const QuarantineSettings& settings, Run& run);
void VerifyQuarantine(const QuarantineSettings& settings, Run& run);

// Deletes the kept files of these names and drops the records whose file is gone then. Files that cannot
// be deleted, and those not come to when the user interrupts, stay with their records. Returns the number
// of names that were done.
std::size_t DeleteFromQuarantine(const QuarantineStore& store, const std::vector<WString>& names);

// A line on standard error.
void Complain(const std::string& what);

// True when the user or the system wants the program to end.
bool IsInterrupted();

// Says on standard error what is not in order with the record file.
void PrintState(const QuarantineStore& store, const QuarantineList& list);

} // namespace vlt::ctl
