// The pattern files of a folder, "<stem>.NNN": which ones there are and which is the newest usable.
#pragma once

#include "suite/Common/PatternFile.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlt::scan
{

constexpr std::string_view VirusStem = "ptf$qrv";
constexpr std::string_view SpywareStem = "ptf$spy";
constexpr std::string_view PackerStem = "ptf$pck";
constexpr std::string_view WhiteListStem = "vlwhite";
constexpr std::string_view BlackListStem = "vlblack";

// What files of the stem have to hold; nothing for a stem that is none of the above.
std::optional<PatternKind> KindOfStem(std::string_view stem);

struct PatternEntry {
    std::filesystem::path path;
    std::string name;          // in lower case
    std::uint32_t version = 0; // 0 when not even the header can be read
    bool intact = false;       // the header is that of a file of this kind
};

// The files of a stem, the newest first: by internal version, then by name. Only headers are read.
std::vector<PatternEntry> ListPatterns(const std::filesystem::path& folder, std::string_view stem, PatternKind kind);

// The whole file; nothing when it cannot be read or any byte of it is not as it should be.
std::optional<PatternFile> LoadPattern(const std::filesystem::path& file);

struct LoadedPattern {
    std::shared_ptr<const PatternFile> file; // null when no file of the stem is usable
    std::string name;                        // of that file
    bool broken = false;                     // a newer file was passed over
};

// The newest file of the stem that can be read whole and is of this kind; broken ones are passed over for
// the next older.
LoadedPattern LoadNewest(const std::filesystem::path& folder, std::string_view stem, PatternKind kind);

// The internal version of the newest file with an intact header, 0 when there is none.
std::uint32_t NewestVersion(const std::filesystem::path& folder, std::string_view stem, PatternKind kind);

} // namespace vlt::scan
