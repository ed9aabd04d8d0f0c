// The pattern files of a folder: which one is the newest usable, and loading a generation of them.
#pragma once

#include "suite/ArdScan/PatternSet.h"

#include <filesystem>
#include <memory>
#include <string_view>

namespace vlt::scan
{

struct LoadedPattern {
    std::shared_ptr<const PatternFile> file; // null when no file of the stem is usable
    bool broken = false;                     // a newer file was passed over
};

// The newest file of "<stem>.NNN" by internal version, then by name, that can be read whole and is of
// this kind; broken ones are passed over for the next older.
LoadedPattern LoadNewest(const std::filesystem::path& folder, std::string_view stem, PatternKind kind);

// The internal version of the newest "<stem>.NNN" with an intact header, 0 when there is none.
std::uint32_t NewestVersion(const std::filesystem::path& folder, std::string_view stem, PatternKind kind);

struct LoadedSet {
    std::shared_ptr<const CPatternSet> set; // null when there is no usable virus pattern
    bool broken = false;                    // a file was passed over
};

// The kinds of an AsReloadKind from the folder, the others from the generation in use, if there is one.
LoadedSet LoadSet(const std::filesystem::path& folder, std::uint32_t kinds, const CPatternSet* current);

constexpr std::string_view VirusStem = "ptf$qrv";
constexpr std::string_view SpywareStem = "ptf$spy";
constexpr std::string_view PackerStem = "ptf$pck";

} // namespace vlt::scan
