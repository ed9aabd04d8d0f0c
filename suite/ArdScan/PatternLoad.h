// Loading a generation of patterns from a folder, at the start and at a reload.
#pragma once

#include "suite/ArdScan/PatternSet.h"

#include <filesystem>
#include <memory>

namespace vlt::scan
{

struct LoadedSet {
    std::shared_ptr<const CPatternSet> set; // null when there is no usable virus pattern
    bool broken = false;                    // a file was passed over, or a kind that was in use or asked for has none
};

// The kinds, bits of AsReloadKind, from the folder; the others from the generation in use, if there is one. A kind
// that has no file is an error only when it was in use or is the only one asked for: installations need not have all.
LoadedSet LoadSet(const std::filesystem::path& folder, std::uint32_t kinds, const CPatternSet* current);

} // namespace vlt::scan
