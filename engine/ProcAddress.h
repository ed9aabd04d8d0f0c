// Typed look-up of a library's entry points.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// Null when the module is null or has no entry point of exactly that name.
template <typename Function>
Function ProcAddress(HMODULE module, const char* name)
{
    return module == nullptr ? nullptr
                             : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Stores the entry point, or null, in the slot. True when it was found.
template <typename Function>
bool ResolveProc(HMODULE module, const char* name, Function& slot)
{
    slot = ProcAddress<Function>(module, name);
    return slot != nullptr;
}

} // namespace vlt
