#include "engine/DynLib.h"

#include "ARDCommon/VlDebug.h"
#include "platform/Text.h"

namespace
{

constexpr int kRetries = 10;
constexpr DWORD kRetryDelay = 10; // ms

} // namespace

Module::Module(LPCWSTR file)
{
    Load(file);
}

Module::~Module()
{
    Free();
}

bool Module::Load(LPCWSTR file)
{
    if (m_handle != nullptr && !Free()) {
        VLT_TRACE(20, "*** Module::Load() - Free() was failed.");
        return false;
    }
    HMODULE handle = LoadLibraryW(file);
    if (handle == nullptr) {
        const DWORD error = GetLastError();
        if (error != ERROR_DLL_INIT_FAILED) {
            VLT_TRACE(20, "  Failed: LoadLibrary(%s): (0x%08x)", vlt::ToNarrow(file), error);
            return false;
        }
        if (!RetryLoad(&handle, file)) {
            VLT_TRACE(20, "*** Module::Load() - RetryLoad() was failed.");
            return false;
        }
        VLT_TRACE(40, "*** Module::Load() - RetryLoad() was success.");
    }
    VLT_TRACE(40, "Success: LoadLibrary(%s): %p", vlt::ToNarrow(file), handle);
    m_handle = handle;
    m_ownsHandle = true;
    return true;
}

bool Module::RetryLoad(HMODULE* handle, LPCWSTR file)
{
    bool loaded = false;
    VLT_TRACE(40, "[Enter] Module::RetryLoad()...");
    for (int attempt = 0; attempt < kRetries; ++attempt) {
        VLT_TRACE(40, "*** Module::RetryLoad() - Star Retry for ::LoadLibrary() Retry[%d]", attempt);
        Sleep(kRetryDelay);
        *handle = LoadLibraryW(file);
        if (*handle != nullptr) {
            VLT_TRACE(40, "*** Module::RetryLoad() - ::LoadLibrary() was success. Retry[%d]", attempt);
            loaded = true;
            break;
        }
        const DWORD error = GetLastError();
        if (error != ERROR_DLL_INIT_FAILED) {
            VLT_TRACE(20, "*** Module::RetryLoad() - ::LoadLibrary() was failed. [0x%08x] Retry[%d]", error, attempt);
            break;
        }
    }
    VLT_TRACE(40, "[Leave] Module::RetryLoad()...");
    return loaded;
}

bool Module::Free()
{
    if (m_ownsHandle) {
        if (!FreeLibrary(m_handle)) {
            VLT_TRACE(20, "Failed: FreeLibrary(%p): 0x%08x", m_handle, GetLastError());
            return false;
        }
        m_ownsHandle = false;
    }
    m_handle = nullptr;
    return true;
}

DynLib::~DynLib()
{
    DynLib::Free();
}

bool DynLib::Load(LPCWSTR file)
{
    const bool loaded = Module::Load(file);
    OnLoad(loaded);
    return loaded;
}

bool DynLib::Free()
{
    const bool freed = Module::Free();
    if (freed)
        OnLoad(false);
    return freed;
}

void DynLib::OnLoad(bool /*loaded*/) {}
