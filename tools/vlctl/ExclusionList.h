// The files and folders that the machine's settings except from scanning, as they stand in the registry
// (ARDCommon/RealTimeSettings.h has the form) and as the service reads them.
#pragma once

#include "platform/win32.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

struct Exclusion {
    bool folder;
    unsigned index;
    std::string name; // of the registry value: "Folder3"
    WString path;     // empty for a place holder
    bool inForce;     // false for a place holder, and for what the service does not come to
    std::string note; // why it is not in force
};

// The note of a place holder, which is no fault.
inline constexpr char kPlaceHolderNote[] = "place holder";

// Every value, files first, in the order of their numbers. Throws CommandError.
std::vector<Exclusion> ReadExclusions();

// Both write one value, so that the service never reads a list in between. Adding takes the first place
// holder or the place behind the list; removing leaves a place holder unless it was the last. Throw
// CommandError: usage when the path cannot be kept, ExitFailed when there is no room.
void AddExclusion(const std::vector<Exclusion>& list, const WString& path, bool folder);
void RemoveExclusion(const std::vector<Exclusion>& list, const Exclusion& entry);

} // namespace vlt::ctl
