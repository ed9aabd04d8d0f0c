// Codes between the host and the Windows subset.
#pragma once

#include "platform/posix/win32/base.h"

namespace vlt::posix
{

// The Windows code for an errno value of a file or resource call.
DWORD ErrorFromErrno(int error) noexcept;

// Sets the last error from errno and returns it.
DWORD SetLastErrorFromErrno() noexcept;

// Restores errno when it goes: for code that must not disturb its caller's.
class ErrnoKeeper
{
public:
    ErrnoKeeper() noexcept;
    ~ErrnoKeeper();
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int m_saved;
};

} // namespace vlt::posix
