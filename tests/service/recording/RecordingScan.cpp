// ArdScan.dll as the service sees it: every entry point that start-up asks for, each call recorded,
// answers from recording.ini. A variant without one export is the same source compiled with
// WITHOUT_<name>.
//
// Detections come from detect.bin in the program's folder, whole detection records: when monitoring
// starts, one thread for each calls back, all at once; with hold=1 in [detect], when it may.
#include "engine/ArdScanAbi.h"
#include "platform/Unique.h"
#include "tests/service/recording/Recorder.h"

#include <cstring>
#include <memory>
#include <vector>

namespace
{

using vlt::record::Fields;
using vlt::record::Number;

char g_handle[1];
char g_storeHandle[1]; // of the quarantine store, for scans on demand
AsConfigRecord g_config{};
vlt::KernelHandle g_together;
std::vector<vlt::KernelHandle> g_threads;

// Records the call and returns the configured result.
std::int32_t Record(const char* name, AsHandle handle, std::int32_t result, Fields arguments = {})
{
    vlt::record::Write("ArdScan", name, {{"handle", handle == g_handle}}, arguments);
    vlt::record::Hold(name);
    return Number(name, "result", result);
}

// Up to and with the double NUL; at most `limit` characters.
std::string MultiString(const WCHAR* list, std::size_t limit = 8192)
{
    std::size_t length = 0;
    while (length + 1 < limit && (list[length] != 0 || list[length + 1] != 0))
        ++length;
    return vlt::record::Hexadecimal(list, (length + 2) * sizeof(WCHAR));
}

unsigned WINAPI Detect(void* argument)
{
    const std::unique_ptr<AsDetectionRecord> record(static_cast<AsDetectionRecord*>(argument));
    WaitForSingleObject(g_together.Get(), INFINITE);
    vlt::record::Hold("detect");
    const bool second = Number("detect", "slot", 1) == 2;
    const AsDetectionCallback callback = second ? g_config.spywareCallback : g_config.detectionCallback;
    callback(second ? g_config.spywareContext : g_config.detectionContext, record.get());
    vlt::record::Write("ArdScan", "detected");
    return 0;
}

void StartDetections()
{
    const vlt::FileHandle file(CreateFileW((vlt::record::Folder() + TEXT("detect.bin")).c_str(), GENERIC_READ,
                                           FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return;
    g_together.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    AsDetectionRecord record;
    DWORD got = 0;
    while (ReadFile(file.Get(), &record, sizeof record, &got, nullptr) && got == sizeof record) {
        auto copy = std::make_unique<AsDetectionRecord>(record);
        g_threads.emplace_back(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Detect, copy.get(), 0, nullptr)));
        if (g_threads.back())
            static_cast<void>(copy.release());
    }
    SetEvent(g_together.Get());
}

void EndDetections()
{
    for (const vlt::KernelHandle& thread : g_threads)
        WaitForSingleObject(thread.Get(), INFINITE);
    g_threads.clear();
}

void CopyNumber(const char* name, const char* key, std::int32_t fallback, std::uint32_t& field)
{
    field = static_cast<std::uint32_t>(Number(name, key, fallback));
}

} // namespace

extern "C" {

AsHandle WINAPI ASInitScanW(std::uint32_t version, AsInitRecord* record, std::uint32_t onAccess)
{
    if (onAccess == 0) {
        vlt::record::Write("ArdScan", "store.ASInitScanW", {}, {{"appFolder", record->appFolder}});
        return g_storeHandle;
    }
    Record("ASInitScanW", g_handle, 0,
           {{"version", version},
            {"onAccess", onAccess},
            {"record", vlt::record::Hexadecimal(record, sizeof *record)},
            {"processId", GetCurrentProcessId()},
            {"appFolder", record->appFolder},
            {"patternFolder", record->patternFolder}});
    if (Number("ASInitScanW", "null", 0) == 0)
        return g_handle;
    CopyNumber("ASInitScanW", "reason", AS_REASON_NONE, record->reason);
    return nullptr;
}

#ifndef WITHOUT_ASDeInitScan
std::int32_t WINAPI ASDeInitScan(AsHandle handle)
{
    if (handle == g_storeHandle) {
        vlt::record::Write("ArdScan", "store.ASDeInitScan");
        return 1;
    }
    EndDetections();
    return Record("ASDeInitScan", handle, 1);
}
#endif

std::int32_t WINAPI ASGetLastError(AsHandle handle)
{
    return Record("ASGetLastError", handle, AS_OK);
}

std::int32_t WINAPI ASSetConfigW(AsHandle handle, const void* config)
{
    std::memcpy(&g_config, config, sizeof g_config);
    const std::string folders = g_config.protectedFolders ? MultiString(g_config.protectedFolders) : "";
    return Record(
        "ASSetConfigW", handle, 1,
        {{"record", vlt::record::Hexadecimal(config, sizeof g_config)},
         {"protectedFolders", g_config.protectedFolders ? folders.c_str() : static_cast<const char*>(nullptr)},
         {"sameCallback", g_config.detectionCallback == g_config.spywareCallback}});
}

std::int32_t WINAPI ASStartScan(AsHandle handle)
{
    const std::int32_t result = Record("ASStartScan", handle, 1);
    StartDetections();
    return result;
}

std::int32_t WINAPI ASStopScan(AsHandle handle, std::uint32_t zero)
{
    EndDetections();
    return Record("ASStopScan", handle, 1, {{"zero", zero}});
}

std::int32_t WINAPI ASScanFileW(AsHandle handle, const WCHAR* path)
{
    return Record("ASScanFileW", handle, 0, {{"path", path}});
}

std::int32_t WINAPI ASManualActionW(AsHandle handle, const WCHAR* path, std::uint32_t action)
{
    return Record("ASManualActionW", handle, 0, {{"path", path}, {"action", action}});
}

// Writes more than the first field, as engines have done: the caller's buffer is larger.
std::int32_t WINAPI ASGetEngineInfo(AsHandle handle, AsEngineInfo* info)
{
    std::memset(static_cast<void*>(info), 0x5A, AS_ENGINE_INFO_BUFFER);
    info->version = Number("ASGetEngineInfo", "thousandths", 8500) / 1000.0;
    return Record("ASGetEngineInfo", handle, 1);
}

std::int32_t WINAPI ASGetEngineInformation(AsHandle handle, AsEngineInformation* information)
{
    CopyNumber("ASGetEngineInformation", "major", 8, information->major);
    CopyNumber("ASGetEngineInformation", "minor", 5, information->minor);
    CopyNumber("ASGetEngineInformation", "build", 1001, information->build);
    return Record("ASGetEngineInformation", handle, 1);
}

std::int32_t WINAPI ASGetPatternInformation(AsHandle handle, AsPatternInformation* information)
{
    const std::string before = vlt::record::Hexadecimal(information, sizeof *information);
    *information = {1, 2, 3, 0, 0xFFFFFFFFu};
    CopyNumber("ASGetPatternInformation", "version", 1234567, information->version);
    return Record("ASGetPatternInformation", handle, 1, {{"record", before}});
}

std::int32_t WINAPI ASGetSpyWarePatternVersion(AsHandle handle, std::uint32_t* version)
{
    const std::uint32_t before = *version;
    CopyNumber("ASGetSpyWarePatternVersion", "version", 77, *version);
    return Record("ASGetSpyWarePatternVersion", handle, 1, {{"before", before}});
}

std::int32_t WINAPI ASGetPatternVersion(AsHandle handle, const char* stem, std::uint32_t* version)
{
    const std::uint32_t before = *version;
    CopyNumber("ASGetPatternVersion", stem, 0, *version);
    return Record("ASGetPatternVersion", handle, 0, {{"stem", stem}, {"before", before}});
}

std::int32_t WINAPI ASGetFirstVirusInfo(AsHandle handle, std::uint64_t*, AsVirusInfo*)
{
    return Record("ASGetFirstVirusInfo", handle, 0);
}

std::int32_t WINAPI ASGetNextVirusInfo(AsHandle handle, std::uint64_t*, AsVirusInfo*)
{
    return Record("ASGetNextVirusInfo", handle, 0);
}

std::int32_t WINAPI ASGetVirusInfo(AsHandle handle, std::uint32_t id, AsVirusInfo*)
{
    return Record("ASGetVirusInfo", handle, 0, {{"id", id}});
}

std::int32_t WINAPI ASSetExceptionFilePathW(AsHandle handle, const WCHAR* path)
{
    return Record("ASSetExceptionFilePathW", handle, 1, {{"path", path}});
}

std::int32_t WINAPI ASSetExceptionFolderPathW(AsHandle handle, const WCHAR* path)
{
    return Record("ASSetExceptionFolderPathW", handle, 1, {{"path", path}});
}

// "needed" makes the buffer look short until it has that many characters; "refuse" always fails.
std::int32_t WINAPI ASGetEngineDefaultExtListW(AsHandle handle, WCHAR* buffer, std::uint32_t* size)
{
    constexpr const char* name = "ASGetEngineDefaultExtListW";
    const WString list = vlt::record::Text(name, "list", TEXT("\"COM;EXE;DLL;{NONE};XYZ\""));
    const std::uint32_t given = *size;
    const auto needed = static_cast<std::uint32_t>(Number(name, "needed", static_cast<std::int32_t>(list.size() + 1)));
    const bool zeroed = buffer[0] == 0 && buffer[given - 1] == 0;
    bool fits = given >= needed && Number(name, "refuse", 0) == 0;
    *size = needed;
    if (fits)
        std::memcpy(buffer, list.c_str(), (list.size() + 1) * sizeof(WCHAR));
    return Record(name, handle, fits ? 1 : 0, {{"size", given}, {"zeroed", zeroed}});
}

#ifndef WITHOUT_ASReloadPatternW
std::int32_t WINAPI ASReloadPatternW(AsHandle handle, std::uint32_t kind, const WCHAR* folder)
{
    return Record("ASReloadPatternW", handle, 1, {{"kind", kind}, {"folder", folder}});
}
#endif

std::int32_t WINAPI ASSetPackTrap(AsHandle handle, std::uint32_t on)
{
    return Record("ASSetPackTrap", handle, 1, {{"on", on}});
}

std::int32_t WINAPI ASAddRemoveExceptionProcess(AsHandle handle, std::uint32_t processId, std::uint32_t add)
{
    return Record("ASAddRemoveExceptionProcess", handle, 1, {{"processId", processId}, {"add", add}});
}

} // extern "C"
