#include "suite/ArdScan/Engine.h"

#include "platform/Text.h"
#include "suite/ArdScan/PatternLoad.h"

#include <fstream>
#include <iterator>

namespace vlt::scan
{
namespace
{

constexpr std::uintmax_t MaxIniSize = 1u << 20;

EngineSettings ReadIni(const HostPath& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error) || std::filesystem::file_size(file, error) > MaxIniSize)
        return {};
    std::ifstream stream(file, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return ReadEngineSettings(text);
}

} // namespace

CEngine::CEngine(const HostPath& appFolder, const HostPath& patternFolder, bool onAccess)
    : m_appFolder(appFolder), m_patternFolder(patternFolder), m_onAccess(onAccess)
{
    // As open files name it: over links, and with the letters that the folder has.
    std::error_code error;
    const HostPath folder = std::filesystem::weakly_canonical(m_appFolder / "Quarantine", error);
    m_context.SetQuarantineFolder(ToHost(ToWindows(error ? m_appFolder / "Quarantine" : folder)));
}

CEngine::~CEngine()
{
    m_guard.reset();
    m_context.status.SetMode("stopped", "");
    m_context.status.Stop();
}

bool CEngine::LoadPatterns()
{
    LoadedSet loaded = LoadSet(m_patternFolder, AS_RELOAD_ALL, nullptr);
    if (!loaded.set)
        return false;
    m_context.Update([&](Snapshot& next) { next.patterns = std::move(loaded.set); });
    Result(loaded.broken ? AS_E_PATTERN : AS_OK);
    return true;
}

AsError CEngine::Configure(const AsConfigRecord& record)
{
    if (InCallback())
        return AS_E_STATE;
    const std::lock_guard lock(m_lock);
    const Policy before = m_context.Current()->policy;
    const Policy policy = Policy::FromRecord(record);
    m_context.Update([&](Snapshot& next) { next.policy = policy; });
    m_configured = true;
    if (!m_guard)
        return AS_OK;
    if (before.directionMask == policy.directionMask && before.network == policy.network) {
        m_guard->ForgetVerdicts(); // they were given under the old settings
        return AS_OK;
    }
    // The new one watches before the old one ends, so nothing passes between them.
    auto next = StartGuard(m_context, m_settings);
    if (!next)
        return AS_E_MONITOR;
    m_guard = std::move(next);
    return AS_OK;
}

AsError CEngine::Configure(const AsQuarantineConfigRecord& record)
{
    const std::lock_guard lock(m_lock);
    m_resultCallback = record.callback;
    m_resultContext = record.context;
    m_context.Update([&](Snapshot& next) {
        next.policy = Policy();
        const WString backup(FieldText(record.backupFolder));
        next.policy.backup = {!backup.empty(), true, backup};
        next.policy.extensions = CExtensionList(TEXT("*"));
        next.policy.filter = {AS_SPYWARE_ADWARE | AS_SPYWARE_DIALER | AS_SPYWARE_TRACKER, true};
        if (record.extractSizeLimit >= 0)
            next.policy.sizeLimit = static_cast<std::uint64_t>(record.extractSizeLimit);
    });
    m_configured = true;
    return AS_OK;
}

void CEngine::StartStatus()
{
    HostPath file;
    if (m_settings.writeStatus)
        file = m_settings.statusFile.empty() ? m_appFolder / "ArdScan.status" : ToHostUtf8(m_settings.statusFile);
    m_context.status.Start(file, [this](const WString& path) {
        const Callbacks callbacks = m_context.Current()->policy.callbacks;
        if (callbacks.lastScan)
            callbacks.lastScan(path.c_str(), callbacks.lastScanContext);
    });
}

AsError CEngine::Start()
{
    if (InCallback() || !m_onAccess)
        return AS_E_STATE;
    const std::lock_guard lock(m_lock);
    if (!m_configured)
        return AS_E_STATE;
    if (m_guard)
        return AS_OK;
    m_settings = ReadIni(m_appFolder / "ArdScan.ini");
    StartStatus();
    RemoveLeftovers(m_context.QuarantineFolder());
    m_guard = StartGuard(m_context, m_settings);
    if (m_guard)
        return AS_OK;
    m_context.status.SetMode("failed", "monitoring could not be started");
    m_context.status.Stop();
    return AS_E_MONITOR;
}

AsError CEngine::Stop()
{
    if (InCallback())
        return AS_E_STATE;
    const std::lock_guard lock(m_lock);
    if (!m_guard)
        return AS_OK;
    m_guard.reset();
    m_context.status.SetMode("stopped", "");
    m_context.status.Stop();
    return AS_OK;
}

AsError CEngine::Reload(std::uint32_t kinds, const HostPath& folder)
{
    if (InCallback())
        return AS_E_STATE;
    if (kinds == 0 || (kinds & ~std::uint32_t{AS_RELOAD_ALL}) != 0)
        return AS_E_ARGUMENT;
    const std::lock_guard reload(m_reloadLock);
    const auto current = m_context.Current()->patterns;
    LoadedSet loaded = LoadSet(folder.empty() ? m_patternFolder : folder, kinds, current.get());
    if (!loaded.set || loaded.broken)
        return AS_E_PATTERN;
    const std::lock_guard lock(m_lock);
    m_context.Update([&](Snapshot& next) { next.patterns = std::move(loaded.set); });
    if (m_guard)
        m_guard->ForgetVerdicts();
    return AS_OK;
}

void CEngine::AddException(bool folder, const WCHAR* path)
{
    m_context.Update([&](Snapshot& next) {
        if (!path)
            folder ? next.exceptions.ClearFolders() : next.exceptions.ClearFiles();
        else
            folder ? next.exceptions.AddFolder(path) : next.exceptions.AddFile(path);
    });
}

AsError CEngine::SetProcess(std::uint32_t processId, bool add)
{
    bool done = false;
    m_context.Update(
        [&](Snapshot& next) { done = add ? next.processes.Add(processId) : next.processes.Remove(processId); });
    return done ? AS_OK : AS_E_ARGUMENT;
}

void CEngine::SetPackTrap(bool on)
{
    const std::lock_guard lock(m_lock);
    if (m_context.Current()->policy.filter.packers == on)
        return;
    m_context.Update([&](Snapshot& next) { next.policy.filter.packers = on; });
    if (m_guard && !InCallback())
        m_guard->ForgetVerdicts();
}

} // namespace vlt::scan
