// The scan library as the quarantine store uses it: entry points are looked up where they are needed.
#pragma once

#include "ARDCommon/VlDebug.h"
#include "engine/ArdScanAbi.h"
#include "engine/ProcAddress.h"

struct QuarantineLibrary {
    HMODULE m_hModule = nullptr; // not owned
    AsHandle handle = nullptr;

    // Null after one trace line when the library has no such entry point.
    template <typename Function>
    Function Export(const char* name) const
    {
        const auto function = vlt::ProcAddress<Function>(m_hModule, name);
        if (function == nullptr)
            VLT_TRACE(20, "Failed: GetProcAddress(): %s", name);
        return function;
    }
};
