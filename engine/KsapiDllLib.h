// The pattern library, Ksapi64.dll, as the service loads it itself: for its version and while a pattern
// is rolled back. Entry points and records: KsapiAbi.h.
#pragma once

#include "engine/DynLib.h"
#include "engine/KsapiAbi.h"

// Usable only when the library has every entry point. A library that lacks one stays loaded until the
// object goes; the pointers it does have are set.
class CKsapiDllLib : public DynLib
{
public:
    CKsapiDllLib();
    ~CKsapiDllLib() override;

    // Loads Ksapi64.dll from the folder, which may end in a backslash; from where the system looks for
    // libraries when it is empty. Failures are traced.
    bool InitW(LPCWSTR folder);
    // The same in the system code page.
    bool InitA(LPCSTR folder);

    bool IsInit() const override;

    KSGetLastPattern_t KSGetLastPattern = nullptr;
    KSGetLastPatternW_t KSGetLastPatternW = nullptr;
    KSDeleteUnusedPattern_t KSDeleteUnusedPattern = nullptr;
    KSGetDefaultExtListSize_t KSGetDefaultExtListSize = nullptr;
    KSGetDefaultExtList_t KSGetDefaultExtList = nullptr;
    KSGetPatternInternalVersion_t KSGetPatternInternalVersion = nullptr;
    KSInit_t KSInit = nullptr;
    KSGetVersion_t KSGetVersion = nullptr;

protected:
    void OnLoad(bool loaded) override;
};
