#include "engine/Kernel32.h"

#include "engine/ProcAddress.h"

Kernel32::~Kernel32()
{
    // Here, and not only in the base, so that this class's OnLoad is the one that is reached.
    DynLib::Free();
}

void Kernel32::OnLoad(bool loaded)
{
    const HMODULE module = loaded ? Handle() : nullptr;
    m_isInit = true;
    const auto resolve = [&](const char* name, auto& slot) {
        if (!vlt::ResolveProc(module, name, slot))
            m_isInit = false;
    };
    resolve("RegisterServiceProcess", RegisterServiceProcess);
    resolve("IsWow64Process", IsWow64Process);
    resolve("Wow64DisableWow64FsRedirection", Wow64DisableWow64FsRedirection);
    resolve("Wow64RevertWow64FsRedirection", Wow64RevertWow64FsRedirection);
    resolve("GetSystemWow64DirectoryA", GetSystemWow64DirectoryA);
    resolve("GetSystemWow64DirectoryW", GetSystemWow64DirectoryW);
}
