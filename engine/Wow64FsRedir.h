// The file-system redirection that a 32-bit process has on a 64-bit system. In a 64-bit process both
// calls find nothing to do.
#pragma once

#include "engine/Kernel32.h"

// Redirection is a property of the thread: Disable and Revert are called on the same one.
class CWow64FsRedir
{
public:
    CWow64FsRedir();
    virtual ~CWow64FsRedir() = default;
    CWow64FsRedir(const CWow64FsRedir&) = delete;
    CWow64FsRedir& operator=(const CWow64FsRedir&) = delete;

    bool IsWow64() const { return m_isWow64; }

    // True when redirection is off from here on until Revert.
    bool Disable();

    // True when it was off and is on again. A library loaded while it was off is freed in any case.
    bool Revert();

private:
    Kernel32 m_kernel32;
    bool m_isWow64 = false;
    bool m_isDisabled = false;
    PVOID m_oldValue = nullptr;
    DynLib m_library; // normally empty
};
