#include "engine/Wow64FsRedir.h"

CWow64FsRedir::CWow64FsRedir()
{
    m_kernel32.Load(TEXT("kernel32.dll"));
    BOOL wow64 = FALSE;
    if (m_kernel32.IsWow64Process != nullptr && m_kernel32.IsWow64Process(GetCurrentProcess(), &wow64))
        m_isWow64 = wow64 != FALSE;
}

bool CWow64FsRedir::Disable()
{
    if (!m_isWow64 || m_isDisabled || m_kernel32.Wow64DisableWow64FsRedirection == nullptr)
        return false;
    m_isDisabled = m_kernel32.Wow64DisableWow64FsRedirection(&m_oldValue) != FALSE;
    return m_isDisabled;
}

bool CWow64FsRedir::Revert()
{
    bool reverted = false;
    if (m_isDisabled && m_kernel32.Wow64RevertWow64FsRedirection != nullptr &&
        m_kernel32.Wow64RevertWow64FsRedirection(m_oldValue)) {
        m_isDisabled = false;
        reverted = true;
    }
    if (m_library.Handle() != nullptr)
        m_library.Free();
    return reverted;
}
