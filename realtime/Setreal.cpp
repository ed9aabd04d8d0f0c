#include "realtime/Setreal.h"

#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/ServiceLog.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlUtil.h"
#include "platform/Text.h"
#include "realtime/ControlEvents.h"
#include "realtime/DefaultExtension.h"
#include "realtime/EngineFailure.h"
#include "realtime/EventLogSource.h"
#include "realtime/Polling.h"
#include "realtime/RegistryWatchers.h"
#include "realtime/SecurityCentre.h"
#include "realtime/Settings.h"
#include "realtime/State.h"
#include "realtime/Versions.h"

#include <memory>
#include <new>

namespace
{

constexpr std::uint32_t kScanLibraryVersion = 2;
constexpr std::uint32_t kOnAccess = 1;

void TraceProgramVersion()
{
    WCHAR program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    VLT_TRACE(40, "GetModuleVersion[VLNTSRV]: %s", vlt::ToNarrow(VlUtil::GetModuleVersion(program)));
}

// A library that lacks an entry point is not kept, and nothing is said about it.
bool BindScanLibrary(const WString& file)
{
    vlt::RealtimeState& state = vlt::Realtime();
    state.scanModule.Reset(LoadLibraryW(file.c_str()));
    if (!state.scanModule) {
        VLT_TRACE(40, "Can not load ArdScan.dll");
        return false;
    }
    if (!state.scanTable.Resolve(state.scanModule.Get())) {
        state.scanModule.Reset();
        return false;
    }
    return true;
}

// Calls ASInitScanW and keeps the handle; on failure frees the library and tells the administrator.
bool OpenScanHandle(const WString& folder)
{
    vlt::RealtimeState& state = vlt::Realtime();
    AsInitRecord record{};
    record.processId = GetCurrentProcessId();
    record.appFolder = folder.c_str();
    record.patternFolder = folder.c_str();
    record.version = AS_INIT_VERSION;
    VLT_TRACE(40, "strAppPath = %ls", folder);
    state.scanHandle = state.scanTable.ASInitScanW(kScanLibraryVersion, &record, kOnAccess);
    if (state.scanHandle == nullptr) {
        WriteServiceLog(TEXT("ASInitScanW Error\r\n"));
        VLT_TRACE(20, "ASInitScanW Error");
        state.scanModule.Reset();
        if (record.reason == AS_REASON_NO_PATTERN)
            WriteVersionErrorValues(VERSION_ERROR_PATTERN | VERSION_ERROR_ENGINE);
        RegisterEventLogSource();
        ReportEngineFailure(0);
        VLT_TRACE(40, "*** ASInitScanW() fialed with an error");
        return false;
    }
    WriteServiceLog(TEXT("ASInitScanW Success\r\n"));
    VLT_TRACE(40, "ASInitScanW Success");
    return true;
}

void WriteExtensionList(AsHandle handle)
{
    if (WriteEngineDefaultExtList(handle) <= 0) {
        const std::int32_t error = vlt::ScanLibrary().ASGetLastError(handle);
        VLT_TRACE(20, "Error: WriteEngineDefaultExtList( %d )", error);
    }
    // Said in either case.
    VLT_TRACE(40, "Success: WriteEngineDefaultExtList");
}

void WriteVersions(AsHandle handle)
{
    WriteEngineInfoVersion(handle);
    WritePatternVersion(handle);
    WriteEngineVersion(handle); // replaces what ASGetEngineInfo said
    WriteKsapiDll64Version();
    WriteSpywareVersion(handle);
    WriteListPatternVersions(handle);
}

// Without it detections are still logged.
void CreateNotifier()
{
    vlt::RealtimeState& state = vlt::Realtime();
    try {
        state.notifier = std::make_unique<CNotifySender>(kVirusFoundChannel, DWORD{sizeof(AsDetectionRecord)});
    } catch (int) { // an object of the channel cannot be made; traced
    } catch (const std::bad_alloc&) {
    }
    state.publishedNotifier.store(state.notifier.get(), std::memory_order_release);
}

void DeleteNotifier()
{
    vlt::RealtimeState& state = vlt::Realtime();
    state.publishedNotifier.store(nullptr, std::memory_order_release);
    if (state.notifier)
        state.notifier->Stop();
    state.notifier.reset();
}

// The thread of the exclusion still runs.
void CloseScanLibrary()
{
    vlt::RealtimeState& state = vlt::Realtime();
    const VlLock lock(state.processExclusion.Gate());
    if (state.scanModule) {
        if (state.scanTable.ASDeInitScan != nullptr)
            state.scanTable.ASDeInitScan(state.scanHandle);
        state.scanModule.Reset();
    }
    state.scanTable = {};
    state.scanHandle = nullptr;
}

} // namespace

bool InitKSAPI(const WString& directory)
{
    vlt::RealtimeState& state = vlt::Realtime();
    const WString folder = vlt::ShortProgramFolder();
    if (state.quarantine.QuarantineInitW(folder.c_str(), (folder + TEXT("Quarantine")).c_str()) != 1) {
        VLT_TRACE(20, "Error: QuarantineInitW");
        return false;
    }
    TraceProgramVersion();
    if (!BindScanLibrary(directory + TEXT("ArdScan.dll")) || !OpenScanHandle(folder))
        return false;

    if (state.scanTable.ASGetLastError(state.scanHandle) != AS_OK)
        WriteVersionErrorValues(VERSION_ERROR_SPYWARE);
    WriteExtensionList(state.scanHandle);
    WriteVersions(state.scanHandle);

    state.settingsLock.emplace();
    VLT_TRACE(40, "InitializeCriticalSection: %x", reinterpret_cast<ULONG_PTR>(&*state.settingsLock));
    {
        const VlLock lock(*state.settingsLock);
        RealtimeSetting();
    }
    state.settingsWatcher.Start(WhenRegChange);
    state.exceptionWatcher.Start(WhenExceptionRegChange);

    // Nothing uses the descriptor; what counts is that start-up fails when it cannot be made.
    if (!VlUtil::CreateNullDaclDescriptor()) {
        VLT_TRACE(40, "Error create event for WinXP!");
        return false;
    }
    CreateNotifier();
    state.processExclusion.Start();
    state.polling.Start(PollingStatusThread);
    state.controlEvents.Start(EventThread);
    return true;
}

void StopRealtimeScan()
{
    vlt::RealtimeState& state = vlt::Realtime();
    if (state.scanModule && state.scanTable.ASStopScan != nullptr) {
        VLT_TRACE(40, "ASStopScan");
        const std::int32_t result = state.scanTable.ASStopScan(state.scanHandle, 0);
        VLT_TRACE(40, "ASStopScan result = %d", result);
    }
    state.settingsWatcher.End();
    state.exceptionWatcher.End();
    state.polling.End();
    state.controlEvents.End();
    state.quarantine.QuarantineClose();
    CloseScanLibrary();
    state.settingsLock.reset();
    DeleteNotifier();
    state.processExclusion.End();
    ChangeWSCStatus(false, false);
}
