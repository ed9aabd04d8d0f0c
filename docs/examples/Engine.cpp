// ArdScan.dll as small as it may be: a scan library with one rule. A file whose name ends in ".bad" and that
// is put into the folder "Inbox" below the program folder is a threat; it is reported and left alone.
//
// It shows what the service calls and when, and what a library owes it; engine/ArdScanAbi.h has the records.
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <cstring>
#include <mutex>
#include <set>
#include <string>

namespace
{

constexpr DWORD kInterval = 100; // ms

// One scan handle. The record of a configuration lives for the call alone, so it is copied.
class Engine
{
public:
    explicit Engine(const AsInitRecord& record) : m_inbox(WString(record.appFolder) + TEXT("Inbox\\")) {}
    ~Engine() { Stop(); }

    void Configure(const AsConfigRecord& config)
    {
        const std::lock_guard lock(m_lock);
        m_config = config;
    }

    bool Start()
    {
        if (m_thread)
            return true; // settings were applied again
        m_stop.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Watch, this, 0, nullptr)));
        return static_cast<bool>(m_thread);
    }

    // No callback comes after it has returned.
    void Stop()
    {
        if (m_thread) {
            SetEvent(m_stop.Get());
            WaitForSingleObject(m_thread.Get(), INFINITE);
        }
        m_thread.Reset();
    }

private:
    static unsigned __stdcall Watch(void* engine)
    {
        Engine& self = *static_cast<Engine*>(engine);
        do
            self.Look();
        while (WaitForSingleObject(self.m_stop.Get(), kInterval) == WAIT_TIMEOUT);
        return 0;
    }

    void Look()
    {
        WIN32_FIND_DATAW data{};
        const vlt::FindHandle find(FindFirstFileW((m_inbox + TEXT("*.bad")).c_str(), &data));
        if (!find)
            return;
        do {
            if (m_seen.insert(data.cFileName).second)
                Report(m_inbox + data.cFileName);
        } while (FindNextFileW(find.Get(), &data));
    }

    void Report(const WString& path)
    {
        AsDetectionRecord record{};
        vlt::CopyToField(record.threatName, WStringView(TEXT("Example.Bad")));
        vlt::CopyToField(record.infectedPath, WStringView(path));
        record.firstAction = AS_ACTION_PASS;
        record.firstResult = AS_RESULT_DONE;
        record.direction = AS_DIRECTION_WRITE;
        AsConfigRecord config;
        {
            const std::lock_guard lock(m_lock);
            config = m_config;
        }
        if (config.detectionCallback != nullptr)
            config.detectionCallback(config.detectionContext, &record);
    }

    const WString m_inbox;
    std::mutex m_lock;
    AsConfigRecord m_config{};
    std::set<WString> m_seen;
    vlt::KernelHandle m_stop;
    vlt::KernelHandle m_thread;
};

Engine* Get(AsHandle handle)
{
    return static_cast<Engine*>(handle);
}

} // namespace

extern "C" {

// The quarantine store opens a handle of its own, without on-access; it never starts it.
AsHandle WINAPI ASInitScanW(std::uint32_t, AsInitRecord* record, std::uint32_t)
{
    if (record == nullptr || record->version != AS_INIT_VERSION || record->appFolder == nullptr)
        return nullptr;
    return new Engine(*record);
}

std::int32_t WINAPI ASDeInitScan(AsHandle handle)
{
    delete Get(handle);
    return 1;
}

std::int32_t WINAPI ASGetLastError(AsHandle)
{
    return AS_OK;
}

std::int32_t WINAPI ASSetConfigW(AsHandle handle, const void* config)
{
    Get(handle)->Configure(*static_cast<const AsConfigRecord*>(config));
    return 1;
}

std::int32_t WINAPI ASStartScan(AsHandle handle)
{
    return Get(handle)->Start() ? 1 : 0;
}

std::int32_t WINAPI ASStopScan(AsHandle handle, std::uint32_t)
{
    Get(handle)->Stop();
    return 1;
}

std::int32_t WINAPI ASReloadPatternW(AsHandle, std::uint32_t, const WCHAR*)
{
    return 1; // the one rule is always in force
}

std::int32_t WINAPI ASGetEngineInfo(AsHandle, AsEngineInfo* info)
{
    info->version = 1.0;
    return 1;
}

std::int32_t WINAPI ASGetEngineInformation(AsHandle, AsEngineInformation* information)
{
    information->major = 1;
    return 1;
}

std::int32_t WINAPI ASGetPatternInformation(AsHandle, AsPatternInformation* information)
{
    information->version = 1;
    return 1;
}

std::int32_t WINAPI ASGetEngineDefaultExtListW(AsHandle, WCHAR* buffer, std::uint32_t* size)
{
    constexpr WStringView list = TEXT("\"BAD\"");
    if (*size <= list.size()) {
        *size = static_cast<std::uint32_t>(list.size() + 1);
        return 0;
    }
    std::memcpy(buffer, list.data(), list.size() * sizeof(WCHAR));
    buffer[list.size()] = 0;
    *size = static_cast<std::uint32_t>(list.size() + 1);
    return 1;
}

// Entry points that must be there, for which this library has nothing to do.

std::int32_t WINAPI ASScanFileW(AsHandle, const WCHAR*)
{
    return 0;
}

std::int32_t WINAPI ASManualActionW(AsHandle, const WCHAR*, std::uint32_t)
{
    return 0;
}

std::int32_t WINAPI ASGetFirstVirusInfo(AsHandle, std::uint64_t*, AsVirusInfo*)
{
    return 0;
}

std::int32_t WINAPI ASGetNextVirusInfo(AsHandle, std::uint64_t*, AsVirusInfo*)
{
    return 0;
}

std::int32_t WINAPI ASGetVirusInfo(AsHandle, std::uint32_t, AsVirusInfo*)
{
    return 0;
}

std::int32_t WINAPI ASGetSpyWarePatternVersion(AsHandle, std::uint32_t*)
{
    return 0;
}

std::int32_t WINAPI ASSetExceptionFilePathW(AsHandle, const WCHAR*)
{
    return 1;
}

std::int32_t WINAPI ASSetExceptionFolderPathW(AsHandle, const WCHAR*)
{
    return 1;
}

std::int32_t WINAPI ASSetPackTrap(AsHandle, std::uint32_t)
{
    return 1;
}

} // extern "C"
