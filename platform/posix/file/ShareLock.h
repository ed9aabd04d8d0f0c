// Share modes that hold between processes.
//
// An open file says what it does and what it denies to others by shared (read) locks of its open
// file description on bytes far beyond the end of every file, which the kernel drops with the last
// descriptor. Each kind of access has two bytes, one for doing it and one for denying it. An opener
// sets its own bytes and then looks whether anyone holds an opposite one, so two conflicting
// openers never both succeed; a short exclusive flock keeps two from failing each other.
//
// The order of the bytes makes the usual combinations one run of them: one lock and one look.
#pragma once

#include "platform/posix/win32/base.h"

namespace vlt::posix
{

// Releases the bytes of a descriptor. They would otherwise live on for a moment when another
// thread is starting a process, whose copy of the descriptor goes away only with exec.
void ReleaseShareLocks(int fd) noexcept;

enum class ShareResult { Granted, Conflict, Deleted };

// access: GENERIC_READ, GENERIC_WRITE and DELETE; share: FILE_SHARE_…. The descriptor must be open
// for reading. Deleted: the file has lost its name since it was opened, open it again. A file
// system without locks grants everything.
ShareResult AcquireShareLocks(int fd, DWORD access, DWORD share) noexcept;

// Holds off openers and deleters of the file for the time of its life, as far as a bounded wait
// for a foreign holder of the flock allows.
class OpenSerializer
{
public:
    explicit OpenSerializer(int fd) noexcept;
    ~OpenSerializer();
    OpenSerializer(const OpenSerializer&) = delete;
    OpenSerializer& operator=(const OpenSerializer&) = delete;

    // Nobody opens the file any more: the lock goes with the descriptor.
    void Forget() noexcept { m_held = false; }

private:
    int m_fd;
    bool m_held;
};

// Whether an opener of the file denies one of these kinds of access; sets nothing.
bool IsAccessDeniedByOthers(int fd, DWORD access) noexcept;

} // namespace vlt::posix
