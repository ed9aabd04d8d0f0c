// One scan handle: its settings, patterns and monitoring.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/ArdScan/Guard.h"
#include "suite/ArdScan/ScanContext.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace vlt::scan
{

// All methods may be called from any thread. Those that change monitoring or patterns run one at a time
// and refuse, with AS_E_STATE, to be called from a callback: they would wait for the callback to end.
class CEngine
{
public:
    CEngine(const HostPath& appFolder, const HostPath& patternFolder, bool onAccess);
    ~CEngine();
    CEngine(const CEngine&) = delete;
    CEngine& operator=(const CEngine&) = delete;

    // False when there is no usable pattern.
    bool LoadPatterns();

    bool OnAccess() const { return m_onAccess; }
    AsError LastError() const { return m_lastError; }
    // Keeps the outcome for LastError; true when it is AS_OK.
    bool Result(AsError error)
    {
        m_lastError = error;
        return error == AS_OK;
    }

    AsError Configure(const AsConfigRecord& record);
    AsError Configure(const AsQuarantineConfigRecord& record);
    AsError Start();
    AsError Stop();
    AsError Reload(std::uint32_t kinds, const HostPath& folder);
    void AddException(bool folder, const WCHAR* path); // null empties the list
    AsError SetProcess(std::uint32_t processId, bool add);
    void SetPackTrap(bool on);
    // As ASScanFileW returns it.
    std::int32_t ScanFile(WStringView path);
    // Cleans a file; on a handle without on-access only.
    AsError ManualAction(const HostPath& path, std::uint32_t action);
    AsError Encode(const HostPath& source, const HostPath& destination);
    AsError Restore(const HostPath& file, const HostPath& destination);
    AsError BackupInfo(const HostPath& file, AsBackupInfoW& info);

    std::shared_ptr<const CPatternSet> Patterns() const { return m_context.Current()->patterns; }
    const HostPath& PatternFolder() const { return m_patternFolder; }

private:
    void StartStatus();

    const HostPath m_appFolder;
    const HostPath m_patternFolder;
    const bool m_onAccess;
    EngineSettings m_settings;
    std::atomic<AsError> m_lastError{AS_OK};
    std::mutex m_reloadLock; // of a whole reload, which may take long; before m_lock
    std::mutex m_lock;       // of what follows, and of changes to the patterns
    bool m_configured = false;
    AsScanResultCallback m_resultCallback = nullptr;
    void* m_resultContext = nullptr;
    CScanContext m_context;
    std::unique_ptr<CGuard> m_guard;
};

} // namespace vlt::scan
