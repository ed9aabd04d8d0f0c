// Version records for the user interface: section Info of ardentis.ini. Keys ignore case. Failures to
// write are ignored, and a version that the library does not tell leaves its entry as it was.
#pragma once

#include "engine/ArdScanAbi.h"
#include "platform/win32.h"

// Entries that WriteVersionErrorValues overwrites.
enum VersionErrorMask : unsigned {
    VERSION_ERROR_PATTERN = 1, // Pattern = "0"
    VERSION_ERROR_ENGINE = 2,  // Engine = "7.0.0"
    VERSION_ERROR_SPYWARE = 4, // Spyware = "0"
};
void WriteVersionErrorValues(unsigned mask);

// Engine, from the floating-point version of ASGetEngineInfo: "8.500".
void WriteEngineInfoVersion(AsHandle handle);
// Engine, from ASGetEngineInformation: "major.minor.build", minor with three digits.
void WriteEngineVersion(AsHandle handle);
// Pattern, decimal.
void WritePatternVersion(AsHandle handle);
// EngineDLL64, of the pattern library in the application folder: "major.minor.build", minor with three
// digits, cut to 14 characters.
void WriteKsapiDll64Version();
// SpyWare, decimal. The entry point is looked up by name at each use.
void WriteSpywareVersion(AsHandle handle);
// WhiteListPattern and BlackListPattern, decimal; for a list that the library does not have, the date of
// its last update (section LastUpdateDate) is emptied as well. Nothing without the entry point, which is
// looked up by name at each use.
void WriteListPatternVersions(AsHandle handle);

namespace vlt
{

// One digit counts as hundreds, two as tens: 5 and 50 are both 500.
std::uint32_t NormalisedMinor(std::uint32_t minor);

// Three digits after the point and none before it when the number is below 1.
WString EngineInfoText(double version);

} // namespace vlt
