// Cleaning: taking out of a file what cleanable patterns find in it.
#pragma once

#include "suite/ArdScan/Encoder.h"
#include "suite/ArdScan/PatternSet.h"

namespace vlt::scan
{

// Where a copy goes before a file is changed: "<name>.RB0" to "<name>.RB9" in the folder.
struct BackupSettings {
    bool wanted = false;
    bool encoded = true; // else a plain copy
    WString folder;
};

// Everything that is found in the file can be cleaned, and something is.
bool IsCleanable(CHostFile& file, const CPatternSet& patterns, const ScanFilter& filter, CScanner& scanner);

// Writes the cleaned file anew, makes the backup and puts the new file in the old one's place while `path` leads to
// it. AS_E_STATE when nothing is found or something cannot be cleaned, AS_E_FILE when the backup or the file cannot
// be written: the file is then as it was.
AsError CleanFile(CHostFile& file, const HostPath& path, const CPatternSet& patterns, const ScanFilter& filter,
                  CScanner& scanner, const BackupSettings& backup);

} // namespace vlt::scan
