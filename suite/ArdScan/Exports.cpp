// The entry points of ArdScan.dll. Here a handle is looked up and an argument is tested; nothing throws
// across the boundary.
#include "suite/ArdScan/Engine.h"

#include "platform/Text.h"
#include "suite/Common/EngineFacts.h"
#include "suite/Common/PatternFolder.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <utility>

using namespace vlt::scan;

#ifdef _WIN32
#define AS_EXPORT extern "C" // the names are in ArdScan.def
#else
#define AS_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace
{

// Handles are numbers that are never given twice, so that a stale one is an error and not another engine. Nothing here
// is destroyed: threads may still call while the process ends. Only while there are engines is there a map, so a
// library that is unloaded leaves nothing behind.
using EngineMap = std::map<std::uintptr_t, std::shared_ptr<CEngine>>;
constinit std::uintptr_t g_nextHandle = 0x41530001;
constinit EngineMap* g_engines = nullptr;

std::mutex& HandlesLock()
{
    alignas(std::mutex) static std::byte place[sizeof(std::mutex)];
    static std::mutex& lock = *new (place) std::mutex;
    return lock;
}

AsHandle Enter(std::shared_ptr<CEngine> engine)
{
    const std::lock_guard lock(HandlesLock());
    if (!g_engines)
        g_engines = new EngineMap;
    g_engines->emplace(g_nextHandle, std::move(engine));
    return reinterpret_cast<AsHandle>(g_nextHandle++);
}

std::shared_ptr<CEngine> Find(AsHandle handle)
{
    const std::lock_guard lock(HandlesLock());
    if (!g_engines)
        return nullptr;
    const auto engine = g_engines->find(reinterpret_cast<std::uintptr_t>(handle));
    return engine == g_engines->end() ? nullptr : engine->second;
}

// What the handle stood for; null when it stood for nothing.
std::shared_ptr<CEngine> Leave(AsHandle handle)
{
    const std::lock_guard lock(HandlesLock());
    if (!g_engines)
        return nullptr;
    auto entry = g_engines->extract(reinterpret_cast<std::uintptr_t>(handle));
    if (g_engines->empty())
        delete std::exchange(g_engines, nullptr);
    return entry ? std::move(entry.mapped()) : nullptr;
}

// Runs the body with the engine; 0 for a bad handle, and for a failure that is remembered.
template <typename Body>
std::int32_t With(AsHandle handle, Body&& body) noexcept
{
    const std::shared_ptr<CEngine> engine = Find(handle);
    if (!engine)
        return 0;
    try {
        return body(*engine);
    } catch (const std::bad_alloc&) {
        engine->Result(AS_E_NO_MEMORY);
    } catch (const std::exception&) {
        engine->Result(AS_E_MONITOR); // threads ran out
    }
    return 0;
}

template <typename Body>
std::int32_t Try(AsHandle handle, Body&& body) noexcept
{
    return With(handle, [&](CEngine& engine) { return engine.Result(body(engine)) ? 1 : 0; });
}

// What the engine makes of one file and puts into another.
template <typename View>
std::int32_t FromTo(AsHandle handle, AsError (CEngine::*action)(const HostPath&, const HostPath&),
                    HostPath (*convert)(View), const typename View::value_type* from,
                    const typename View::value_type* to) noexcept
{
    return Try(handle, [&](CEngine& engine) {
        return from && to ? (engine.*action)(convert(from), convert(to)) : AS_E_ARGUMENT;
    });
}

std::int32_t NotSupported(AsHandle handle) noexcept
{
    return Try(handle, [](CEngine&) { return AS_E_NOT_SUPPORTED; });
}

AsHandle Init(std::uint32_t version, const HostPath& app, const HostPath& patterns, bool onAccess,
              std::uint32_t& reason)
{
    if (version != 2 || app.empty() || patterns.empty()) {
        reason = AS_REASON_ARGUMENT;
        return nullptr;
    }
    auto engine = std::make_shared<CEngine>(app, patterns, onAccess);
    if (!engine->LoadPatterns()) {
        reason = AS_REASON_NO_PATTERN;
        return nullptr;
    }
    return Enter(std::move(engine));
}

template <typename Convert>
AsHandle InitGuarded(std::uint32_t version, AsInitRecord* record, std::uint32_t onAccess, Convert&& convert) noexcept
{
    if (!record)
        return nullptr;
    try {
        if (!record->appFolder || !record->patternFolder || record->version != AS_INIT_VERSION) {
            record->reason = AS_REASON_ARGUMENT;
            return nullptr;
        }
        return Init(version, convert(record->appFolder), convert(record->patternFolder), onAccess != 0, record->reason);
    } catch (const std::bad_alloc&) {
        record->reason = AS_REASON_RESOURCE;
    } catch (const std::exception&) {
        record->reason = AS_REASON_INTERNAL;
    }
    return nullptr;
}

// Empty rather than shortened: a part of a path is the path of another file.
void NarrowToField(char (&field)[260], const WCHAR* path)
{
    const std::string text = vlt::ToNarrow(path);
    vlt::CopyToField(field, text.size() < std::size(field) ? std::string_view(text) : std::string_view());
}

bool Describe(CEngine& engine, std::uint64_t id, AsVirusInfo& info)
{
    const auto patterns = engine.Patterns();
    if (id >= patterns->Threats().size())
        return false;
    const Threat& threat = patterns->Threats()[static_cast<std::size_t>(id)];
    info = {};
    info.id = threat.id;
    info.kind = threat.kind == PatternKind::Spyware ? threat.signature->spywareKind : 0;
    info.flags = threat.signature->flags & SignatureCleanable;
    std::memcpy(info.name, threat.signature->name.data(),
                std::min(threat.signature->name.size(), sizeof(info.name) - 1));
    return true;
}

std::int32_t NextVirus(AsHandle handle, std::uint64_t* cursor, AsVirusInfo* info, bool first) noexcept
{
    return With(handle, [&](CEngine& engine) {
        if (!cursor || !info) {
            engine.Result(AS_E_ARGUMENT);
            return 0;
        }
        if (first)
            *cursor = 0;
        engine.Result(AS_OK);
        return Describe(engine, *cursor, *info) ? (++*cursor, 1) : 0;
    });
}

} // namespace

AS_EXPORT AsHandle WINAPI ASInitScanW(std::uint32_t version, AsInitRecord* record, std::uint32_t onAccess)
{
    return InitGuarded(version, record, onAccess, [](const WCHAR* path) { return ToHost(path); });
}

// The record's texts are narrow.
AS_EXPORT AsHandle WINAPI ASInitScan(std::uint32_t version, AsInitRecord* record, std::uint32_t onAccess)
{
    return InitGuarded(version, record, onAccess,
                       [](const WCHAR* path) { return ToHostNarrow(reinterpret_cast<const char*>(path)); });
}

AS_EXPORT std::int32_t WINAPI ASDeInitScan(AsHandle handle)
{
    const std::int32_t stopped = Try(handle, [](CEngine& engine) { return engine.Stop(); });
    if (!stopped)
        return 0;
    return Leave(handle) ? 1 : 0;
}

AS_EXPORT std::int32_t WINAPI ASGetLastError(AsHandle handle)
{
    const auto engine = Find(handle);
    return engine ? engine->LastError() : AS_E_HANDLE;
}

AS_EXPORT std::int32_t WINAPI ASSetConfigW(AsHandle handle, const void* config)
{
    return Try(handle, [&](CEngine& engine) {
        if (!config)
            return AS_E_ARGUMENT;
        return engine.OnAccess() ? engine.Configure(*static_cast<const AsConfigRecord*>(config))
                                 : engine.Configure(*static_cast<const AsQuarantineConfigRecord*>(config));
    });
}

AS_EXPORT std::int32_t WINAPI ASSetConfig(AsHandle handle, const void*)
{
    return NotSupported(handle);
}

AS_EXPORT std::int32_t WINAPI ASStartScan(AsHandle handle)
{
    return Try(handle, [](CEngine& engine) { return engine.Start(); });
}

AS_EXPORT std::int32_t WINAPI ASStopScan(AsHandle handle, std::uint32_t)
{
    return Try(handle, [](CEngine& engine) { return engine.Stop(); });
}

AS_EXPORT std::int32_t WINAPI ASScanFileW(AsHandle handle, const WCHAR* path)
{
    if (!Find(handle))
        return -AS_E_HANDLE;
    if (!path)
        return -AS_E_ARGUMENT;
    const std::int32_t result = With(handle, [&](CEngine& engine) { return engine.ScanFile(path); });
    return result == 0 && ASGetLastError(handle) != AS_OK ? -ASGetLastError(handle) : result;
}

AS_EXPORT std::int32_t WINAPI ASScanFile(AsHandle handle, const char* path)
{
    if (!path)
        return -AS_E_ARGUMENT;
    WString wide;
    try {
        wide = ToWindows(ToHostNarrow(path));
    } catch (const std::exception&) {
        return -AS_E_NO_MEMORY;
    }
    return ASScanFileW(handle, wide.c_str());
}

AS_EXPORT std::int32_t WINAPI ASGetEngineInfo(AsHandle handle, AsEngineInfo* info)
{
    return Try(handle, [&](CEngine&) {
        if (!info)
            return AS_E_ARGUMENT;
        info->version = EngineMajor + EngineMinor / 1000.0;
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetEngineInformation(AsHandle handle, AsEngineInformation* information)
{
    return Try(handle, [&](CEngine&) {
        if (!information)
            return AS_E_ARGUMENT;
        information->major = EngineMajor;
        information->minor = EngineMinor;
        information->build = EngineBuild;
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetPatternInformation(AsHandle handle, AsPatternInformation* information)
{
    return Try(handle, [&](CEngine& engine) {
        if (!information)
            return AS_E_ARGUMENT;
        const auto patterns = engine.Patterns();
        *information = {patterns->PatternCount(), patterns->HashCount(), patterns->Generation(),
                        patterns->VirusVersion(), 0};
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetSpyWarePatternVersion(AsHandle handle, std::uint32_t* version)
{
    return Try(handle, [&](CEngine& engine) {
        if (!version)
            return AS_E_ARGUMENT;
        *version = engine.Patterns()->SpywareVersion();
        return *version != 0 ? AS_OK : AS_E_PATTERN;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetPatternVersion(AsHandle handle, const char* stem, std::uint32_t* version)
{
    return Try(handle, [&](CEngine& engine) {
        if (!stem || !version)
            return AS_E_ARGUMENT;
        const bool black = std::strcmp(stem, "vlblack") == 0;
        *version = 0;
        if (!black && std::strcmp(stem, "vlwhite") != 0)
            return AS_E_ARGUMENT;
        *version = NewestVersion(engine.PatternFolder(), stem, black ? PatternKind::BlackList : PatternKind::WhiteList);
        return *version != 0 ? AS_OK : AS_E_PATTERN;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetFirstVirusInfo(AsHandle handle, std::uint64_t* cursor, AsVirusInfo* info)
{
    return NextVirus(handle, cursor, info, true);
}

AS_EXPORT std::int32_t WINAPI ASGetNextVirusInfo(AsHandle handle, std::uint64_t* cursor, AsVirusInfo* info)
{
    return NextVirus(handle, cursor, info, false);
}

AS_EXPORT std::int32_t WINAPI ASGetVirusInfo(AsHandle handle, std::uint32_t id, AsVirusInfo* info)
{
    return Try(handle, [&](CEngine& engine) { return info && Describe(engine, id, *info) ? AS_OK : AS_E_ARGUMENT; });
}

AS_EXPORT std::int32_t WINAPI ASSetExceptionFilePathW(AsHandle handle, const WCHAR* path)
{
    return Try(handle, [&](CEngine& engine) {
        engine.AddException(false, path);
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASSetExceptionFolderPathW(AsHandle handle, const WCHAR* path)
{
    return Try(handle, [&](CEngine& engine) {
        engine.AddException(true, path);
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASGetEngineDefaultExtListW(AsHandle handle, WCHAR* buffer, std::uint32_t* size)
{
    return Try(handle, [&](CEngine&) {
        if (!size)
            return AS_E_ARGUMENT;
        const WStringView list = DefaultExtensions();
        const auto needed = static_cast<std::uint32_t>(list.size() + 1);
        const bool fits = buffer && *size >= needed;
        *size = needed;
        if (!fits)
            return AS_E_BUFFER;
        list.copy(buffer, list.size());
        buffer[list.size()] = 0;
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASReloadPatternW(AsHandle handle, std::uint32_t kind, const WCHAR* folder)
{
    return Try(handle, [&](CEngine& engine) { return engine.Reload(kind, folder ? ToHost(folder) : HostPath()); });
}

AS_EXPORT std::int32_t WINAPI ASSetPackTrap(AsHandle handle, std::uint32_t on)
{
    return Try(handle, [&](CEngine& engine) {
        engine.SetPackTrap(on != 0);
        return AS_OK;
    });
}

AS_EXPORT std::int32_t WINAPI ASAddRemoveExceptionProcess(AsHandle handle, std::uint32_t processId, std::uint32_t add)
{
    return Try(handle, [&](CEngine& engine) { return engine.SetProcess(processId, add != 0); });
}

AS_EXPORT std::int32_t WINAPI ASManualActionW(AsHandle handle, const WCHAR* path, std::uint32_t action)
{
    return Try(handle,
               [&](CEngine& engine) { return path ? engine.ManualAction(ToHost(path), action) : AS_E_ARGUMENT; });
}

AS_EXPORT std::int32_t WINAPI ASManualAction(AsHandle handle, const char* path, std::uint32_t action)
{
    return Try(handle,
               [&](CEngine& engine) { return path ? engine.ManualAction(ToHostNarrow(path), action) : AS_E_ARGUMENT; });
}

AS_EXPORT std::int32_t WINAPI ASEncodeFileW(AsHandle handle, const WCHAR* source, const WCHAR* destination)
{
    return FromTo(handle, &CEngine::Encode, ToHost, source, destination);
}

AS_EXPORT std::int32_t WINAPI ASEncodeFile(AsHandle handle, const char* source, const char* destination)
{
    return FromTo(handle, &CEngine::Encode, ToHostNarrow, source, destination);
}

AS_EXPORT std::int32_t WINAPI ASRestoreFileW(AsHandle handle, const WCHAR* file, const WCHAR* destination)
{
    return FromTo(handle, &CEngine::Restore, ToHost, file, destination);
}

AS_EXPORT std::int32_t WINAPI ASRestoreFile(AsHandle handle, const char* file, const char* destination)
{
    return FromTo(handle, &CEngine::Restore, ToHostNarrow, file, destination);
}

AS_EXPORT std::int32_t WINAPI ASGetBackupFileInfoW(AsHandle handle, const WCHAR* file, AsBackupInfoW* info)
{
    return Try(handle,
               [&](CEngine& engine) { return file && info ? engine.BackupInfo(ToHost(file), *info) : AS_E_ARGUMENT; });
}

AS_EXPORT std::int32_t WINAPI ASGetBackupFileInfo(AsHandle handle, const char* file, AsBackupInfoA* info)
{
    return Try(handle, [&](CEngine& engine) {
        if (!file || !info)
            return AS_E_ARGUMENT;
        AsBackupInfoW wide{};
        if (const AsError error = engine.BackupInfo(ToHostNarrow(file), wide); error != AS_OK)
            return error;
        *info = {};
        NarrowToField(info->sourcePath, wide.sourcePath);
        NarrowToField(info->backupPath, wide.backupPath);
        info->time = wide.time;
        info->encoded = wide.encoded;
        return AS_OK;
    });
}
