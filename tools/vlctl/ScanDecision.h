// Would the service scan a file when it is used, and what decides: asked of the rules that the scan library
// itself uses, over the settings of this machine.
#pragma once

#include "platform/win32.h"

#include <string>

namespace vlt::ctl
{

struct ScanDecision {
    bool scanned = false;
    std::string decidedBy; // "guarded folder", "exclusion", "setting", ...
    std::string entry;     // the one that decides: "Folder0", "FileTypeList"
    std::string detail;    // its value or the reason in words
};

// The path in the product's form, in full and without links, however it was written.
WString FullPath(const std::string& path);
bool IsFolder(const WString& path);

// Processes that are excluded are not looked at. Throws CommandError.
ScanDecision DecideScan(const WString& path);

} // namespace vlt::ctl
