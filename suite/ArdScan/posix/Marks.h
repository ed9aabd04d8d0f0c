// Marks of a fanotify group. False with errno when the kernel refuses one.
#pragma once

#include "suite/ArdScan/Ini.h"

#include <cstdint>
#include <fcntl.h>
#include <sys/fanotify.h>

namespace vlt::scan
{

// The files in the folder, not those below.
inline bool AddFolderMark(int group, std::uint64_t events, const char* folder)
{
    return fanotify_mark(group, FAN_MARK_ADD | FAN_MARK_ONLYDIR | FAN_MARK_DONT_FOLLOW, events | FAN_EVENT_ON_CHILD,
                         AT_FDCWD, folder) == 0;
}

// The mount or the file system of that root.
inline bool AddWholeMark(int group, std::uint64_t events, const char* root, MountPolicy policy)
{
    const unsigned kind = policy == MountPolicy::WholeFileSystem ? FAN_MARK_FILESYSTEM : FAN_MARK_MOUNT;
    return fanotify_mark(group, FAN_MARK_ADD | kind, events, AT_FDCWD, root) == 0;
}

} // namespace vlt::scan
