// What a file is beside its content, in a form that both hosts can write down.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vlt::scan
{

struct FileTime {
    std::int64_t seconds = 0; // since 1 January 1970 UTC
    std::uint32_t nanoseconds = 0;
    bool operator==(const FileTime&) const = default;
};

struct ExtendedAttribute {
    std::string name;
    std::string value;
    bool operator==(const ExtendedAttribute&) const = default;
};

struct FileFacts {
    std::uint32_t attributes = 0; // FILE_ATTRIBUTE_...
    FileTime created, accessed, modified;
    bool hasOwner = false;  // the rest is known; never on Windows
    std::uint32_t mode = 0; // permission bits with set-id and sticky ones
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::vector<ExtendedAttribute> extended;
    bool operator==(const FileFacts&) const = default;
};

} // namespace vlt::scan
