// The scan library as the quarantine store uses it: entry points are looked up where they are first needed,
// and kept.
#pragma once

#include "ARDCommon/VlDebug.h"
#include "engine/ArdScanAbi.h"
#include "engine/ProcAddress.h"

#include <atomic>

// An entry point, found by whichever thread needs it first.
template <typename Function>
class CLazyExport
{
public:
    explicit constexpr CLazyExport(const char* name) : m_name(name) {}

    const char* Name() const { return m_name; }
    // Null when the library has none.
    Function In(HMODULE library) const
    {
        Function function = m_function.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = vlt::ProcAddress<Function>(library, m_name);
            m_function.store(function, std::memory_order_relaxed);
        }
        return function;
    }
    void Forget() { m_function.store(nullptr, std::memory_order_relaxed); }

private:
    const char* const m_name;
    mutable std::atomic<Function> m_function{nullptr};
};

struct QuarantineLibrary {
    HMODULE m_hModule = nullptr; // not owned
    AsHandle handle = nullptr;

    CLazyExport<ASEncodeFileW_t> m_pfASEncodeFileW{"ASEncodeFileW"};
    CLazyExport<ASRestoreFileW_t> m_pfASRestoreFileW{"ASRestoreFileW"};
    CLazyExport<ASGetBackupFileInfoW_t> m_pfASGetBackupFileInfoW{"ASGetBackupFileInfoW"};
    CLazyExport<ASGetEngineInfo_t> m_pfASGetEngineInfo{"ASGetEngineInfo"};
    CLazyExport<ASGetPatternInformation_t> m_pfASGetPatternInformation{"ASGetPatternInformation"};
    CLazyExport<ASSetConfigW_t> m_pfASSetConfigW{"ASSetConfigW"};
    CLazyExport<ASScanFileW_t> m_pfASScanFileW{"ASScanFileW"};
    CLazyExport<ASManualActionW_t> m_pfASManualActionW{"ASManualActionW"};

    // Null after one trace line when the library has no such entry point.
    template <typename Function>
    Function Export(const CLazyExport<Function>& entry) const
    {
        const Function function = entry.In(m_hModule);
        if (function == nullptr)
            VLT_TRACE(20, "Failed: GetProcAddress(): %s", entry.Name());
        return function;
    }

    // Nobody may be using the entry points.
    void Set(HMODULE library, AsHandle scanHandle)
    {
        m_hModule = library;
        handle = scanHandle;
        m_pfASEncodeFileW.Forget();
        m_pfASRestoreFileW.Forget();
        m_pfASGetBackupFileInfoW.Forget();
        m_pfASGetEngineInfo.Forget();
        m_pfASGetPatternInformation.Forget();
        m_pfASSetConfigW.Forget();
        m_pfASScanFileW.Forget();
        m_pfASManualActionW.Forget();
    }
};
