// Optional system functions, found at run time.
#pragma once

#include "engine/DynLib.h"

// IsInit is false on systems that lack one of them (RegisterServiceProcess has long gone); the others
// are usable all the same, so callers test each pointer.
class Kernel32 : public DynLib
{
public:
    using RegisterServiceProcess_t = DWORD(WINAPI*)(DWORD processId, DWORD type);
    using IsWow64Process_t = BOOL(WINAPI*)(HANDLE process, BOOL* wow64);
    using Wow64DisableWow64FsRedirection_t = BOOL(WINAPI*)(PVOID* oldValue);
    using Wow64RevertWow64FsRedirection_t = BOOL(WINAPI*)(PVOID oldValue);
    using GetSystemWow64DirectoryA_t = UINT(WINAPI*)(LPSTR buffer, UINT size);
    using GetSystemWow64DirectoryW_t = UINT(WINAPI*)(LPWSTR buffer, UINT size);

    ~Kernel32() override;

    RegisterServiceProcess_t RegisterServiceProcess = nullptr;
    IsWow64Process_t IsWow64Process = nullptr;
    Wow64DisableWow64FsRedirection_t Wow64DisableWow64FsRedirection = nullptr;
    Wow64RevertWow64FsRedirection_t Wow64RevertWow64FsRedirection = nullptr;
    GetSystemWow64DirectoryA_t GetSystemWow64DirectoryA = nullptr;
    GetSystemWow64DirectoryW_t GetSystemWow64DirectoryW = nullptr;

protected:
    void OnLoad(bool loaded) override;
};
