// What the kernel says of an open file.
#pragma once

#include "suite/Common/HostPath.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <unistd.h>

namespace vlt::scan
{

// Within the buffer. Empty when it is not known. Of a deleted file, its last name followed by " (deleted)".
inline std::string_view PathOfOpenFile(int file, std::array<char, 4096>& buffer)
{
    std::array<char, 32> link;
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    const ssize_t length = readlink(link.data(), buffer.data(), buffer.size());
    return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

inline HostPath PathOfOpenFile(int file)
{
    std::array<char, 4096> buffer;
    return HostPath(PathOfOpenFile(file, buffer));
}

} // namespace vlt::scan
