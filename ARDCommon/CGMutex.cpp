#include "ARDCommon/CGMutex.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"

namespace
{

WString LocalName(LPCWSTR name)
{
    return TEXT("Local_") + WString(name);
}

// kFailed, kOwned, or kInThisSession when it was there; only kOwned leaves the handle open.
CGMutex::Presence Make(vlt::KernelHandle& mutex, const WString& name)
{
    const DefSecAttr security;
    mutex.Reset(CreateMutexW(security.Get(), FALSE, name.c_str()));
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
    if (!mutex)
        return CGMutex::kFailed;
    if (!existed)
        return CGMutex::kOwned;
    mutex.Reset();
    return CGMutex::kInThisSession;
}

bool Exists(const WString& name)
{
    const vlt::KernelHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()));
    return static_cast<bool>(mutex);
}

} // namespace

CGMutex::Presence CGMutex::CreateGlobal(LPCWSTR name)
{
    return SetName(name) ? Make(m_global, vlt::MakeGlobalName(m_name)) : kFailed;
}

CGMutex::Presence CGMutex::CreatePair(LPCWSTR name)
{
    return CreatePair(name, vlt::HasSessionNamespaces());
}

CGMutex::Presence CGMutex::CreatePair(LPCWSTR name, bool namespaces)
{
    if (!SetName(name))
        return kFailed;
    if (!namespaces)
        return Make(m_global, m_name);
    if (const Presence local = Make(m_local, LocalName(m_name)); local != kOwned)
        return local;
    const Presence global = Make(m_global, vlt::MakeGlobalName(m_name));
    if (global == kOwned)
        return kOwned;
    m_local.Reset();
    return global == kFailed ? kFailed : kInOtherSession;
}

CGMutex::Presence CGMutex::IsRunning(LPCWSTR name)
{
    return IsRunning(name, vlt::HasSessionNamespaces());
}

CGMutex::Presence CGMutex::IsRunning(LPCWSTR name, bool namespaces)
{
    if (!name)
        return kFailed;
    if (!namespaces)
        return Exists(name) ? kInThisSession : kFailed;
    if (Exists(LocalName(name)))
        return kInThisSession;
    return Exists(vlt::MakeGlobalName(name)) ? kInOtherSession : kFailed;
}

void CGMutex::Close()
{
    m_local.Reset();
    m_global.Reset();
}

bool CGMutex::SetName(LPCWSTR name)
{
    Close();
    if (!name || lstrlenW(name) >= MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    lstrcpynW(m_name, name, MAX_PATH);
    return true;
}
