#include "engine/KsapiDllLib.h"

#include "ARDCommon/VlDebug.h"
#include "engine/ProcAddress.h"
#include "platform/Text.h"

CKsapiDllLib::CKsapiDllLib()
{
    CKsapiDllLib::OnLoad(false);
}

CKsapiDllLib::~CKsapiDllLib()
{
    // Here, and not only in the base, so that this class's OnLoad is the one that is reached.
    DynLib::Free();
}

bool CKsapiDllLib::InitW(LPCWSTR folder)
{
    WString path = folder;
    if (!path.empty() && path.back() != TEXT('\\'))
        path += TEXT('\\');
    path += TEXT("Ksapi64.dll");
    if (!Load(path.c_str())) {
        VLT_TRACE(20, "CKsapiDllLib::InitW() - this->Load() failed.");
        return false;
    }
    if (!IsInit()) {
        VLT_TRACE(20, "CKsapiDllLib::InitW() - this->IsInit() failed.");
        return false;
    }
    return true;
}

bool CKsapiDllLib::InitA(LPCSTR folder)
{
    if (InitW(vlt::ToWide(folder).c_str()))
        return true;
    VLT_TRACE(20, "CKsapiDllLib::InitA() - this->InitW() failed.");
    return false;
}

bool CKsapiDllLib::IsInit() const
{
    return KSGetLastPattern != nullptr && KSGetLastPatternW != nullptr && KSDeleteUnusedPattern != nullptr &&
           KSGetDefaultExtListSize != nullptr && KSGetDefaultExtList != nullptr &&
           KSGetPatternInternalVersion != nullptr && KSInit != nullptr && KSGetVersion != nullptr;
}

void CKsapiDllLib::OnLoad(bool loaded)
{
    const HMODULE module = loaded ? Handle() : nullptr;
    m_isInit = true;
    const auto resolve = [&](const char* name, auto& slot) {
        if (!vlt::ResolveProc(module, name, slot))
            m_isInit = false;
    };
    resolve("KSGetLastPattern", KSGetLastPattern);
    resolve("KSGetLastPatternW", KSGetLastPatternW);
    resolve("KSDeleteUnusedPattern", KSDeleteUnusedPattern);
    resolve("KSGetDefaultExtListSize", KSGetDefaultExtListSize);
    resolve("KSGetDefaultExtList", KSGetDefaultExtList);
    resolve("KSGetPatternInternalVersion", KSGetPatternInternalVersion);
    resolve("KSInit", KSInit);
    resolve("KSGetVersion", KSGetVersion);
}
