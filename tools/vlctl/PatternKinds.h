// The kinds of pattern files and what belongs to each.
#pragma once

#include "ARDCommon/RollbackFormat.h"
#include "platform/win32.h"

#include <array>

namespace vlt::ctl
{

struct PatternKind {
    const char* name;           // on the command line
    const char* stem;           // files are "<stem>.NNN"
    const char* reloadEvent;    // makes the service reload it
    const WCHAR* loadedVersion; // entry of [Info] in ardentis.ini, where the service writes what it has loaded
};

inline constexpr std::array<PatternKind, 5> kPatternKinds{{
    {"virus", kVirusPatternStem, "Event_Reload_Ksapi", TEXT("Pattern")},
    {"spyware", "ptf$spy", "Event_Reload_Spyware", TEXT("SpyWare")},
    {"packer", "ptf$pck", "Event_Reload_Pattern", nullptr},
    {"white", "vlwhite", "Event_Reload_Pattern", TEXT("WhiteListPattern")},
    {"black", "vlblack", "Event_Reload_Pattern", TEXT("BlackListPattern")},
}};
inline constexpr const PatternKind& kVirusPatterns = kPatternKinds[0];
inline constexpr const char* kReloadAllEvent = "Event_Reload_Pattern";

} // namespace vlt::ctl
