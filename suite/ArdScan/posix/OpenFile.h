// What the kernel says of an open file.
#pragma once

#include "suite/Common/HostPath.h"

#include <array>
#include <cstdio>
#include <unistd.h>

namespace vlt::scan
{

// Empty when it is not known. Of a deleted file, its last name followed by " (deleted)".
inline HostPath PathOfOpenFile(int file)
{
    std::array<char, 32> link;
    std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    std::array<char, 4096> path;
    const ssize_t length = readlink(link.data(), path.data(), path.size());
    return length > 0 ? HostPath(std::string(path.data(), static_cast<std::size_t>(length))) : HostPath();
}

} // namespace vlt::scan
