// What only root can do to the running process. Gone with it, whatever happens.
#pragma once

#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::test
{

// Gives up root for good.
inline bool BecomeNobody()
{
    return setgid(65534) == 0 && setuid(65534) == 0;
}

// From here on what this process mounts is seen by it and its children alone.
inline bool HaveOwnMounts()
{
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// A file system of that size ("64k") in the folder's place.
inline bool MountSmallDisk(const std::filesystem::path& folder, const char* size, unsigned long flags = 0)
{
    return HaveOwnMounts() && mount("none", folder.c_str(), "tmpfs", flags, (std::string("size=") + size).c_str()) == 0;
}

} // namespace vlt::test
