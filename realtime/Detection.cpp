#include "realtime/Detection.h"

#include "ARDCommon/LastScanInfo.h"
#include "ARDCommon/VirusLog.h"
#include "ARDCommon/VlCriticalSection.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlFile.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/State.h"

#include <ctime>
#include <memory>
#include <new>

namespace
{

std::uint32_t Now()
{
    return static_cast<std::uint32_t>(std::time(nullptr));
}

// An encoded copy waits to be taken into the store. One of a file that is to be recorded under its
// second path does only when the record names no other.
bool IsForQuarantine(const AsDetectionRecord& record)
{
    const bool encoded = (record.firstAction == AS_ACTION_QUARANTINE && record.firstResult == AS_RESULT_DONE) ||
                         (record.secondAction == AS_ACTION_QUARANTINE && record.secondResult == AS_RESULT_DONE);
    return encoded && (record.secondPath[0] == 0 || (record.threatName[0] == 0 && record.infectedPath[0] == 0));
}

// The library leaves the copy in the store's folder, so its name is enough.
void MoveIntoQuarantine(const AsDetectionRecord& record)
{
    const WStringView encoded = vlt::FieldText(record.encodedPath);
    const WString name(encoded.substr(VlFile::NamePosition(encoded)));
    const WStringView second = vlt::FieldText(record.secondPath);
    const WString source(second.empty() ? vlt::FieldText(record.infectedPath) : second);
    const WStringView threat = vlt::FieldText(record.threatName);
    CQuarantine& store = vlt::Realtime().quarantine;
    if (store.RenameEncodeFileW(name.c_str(), source.c_str(), threat.empty() ? TEXT("---") : WString(threat).c_str()) <=
        0)
        VLT_TRACE(20, "Error: Quarantine RenameEncodeFileW (%d)", store.LastErrorCode());
}

void KeepAsLastDetection(const AsDetectionRecord& record)
{
    WCHAR text[MAX_PATH] = {};
    if (!GetDetectFileText(record, text, MAX_PATH))
        return;
    const LastDetectRecord last{
        .type = 0, .time = Now(), .file = text, .threat = WString(vlt::FieldText(record.threatName))};
    if (CLastScanInfo().SetLastDetectInfo(&last) <= 0)
        VLT_TRACE(20, "Error: CLastScanInfo::SetLastDetectInfo");
}

// The steps do without each other: one that runs out of memory is skipped.
template <typename Step>
void Attempt(Step step) noexcept
{
    try {
        step();
    } catch (const std::bad_alloc&) {
        VLT_TRACE(20, "Error: RealTimeScanVirusCallBack: out of memory");
    }
}

// One log write at a time, so that lines do not mingle and a new file gets one byte-order mark. Never
// deleted: a log thread may still be writing when the service ends.
VlCriticalSection& VirusLogLock()
{
    static VlCriticalSection& lock = *new VlCriticalSection;
    return lock;
}

bool Write(const CVirusLogForRealTimeScan2& log, const AsDetectionRecord& record)
{
    try {
        return log.WriteVirusLog(&record);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void StartVirusLogThread(const AsDetectionRecord& record)
{
    std::unique_ptr<AsDetectionRecord> copy(new (std::nothrow) AsDetectionRecord(record));
    if (copy == nullptr)
        return;
    const vlt::KernelHandle thread(reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, ThreadWriteVirusLogForRealTimeScan, copy.get(), 0, nullptr)));
    if (thread)
        copy.release(); // the thread's from here on
}

void NotifyReceivers(const AsDetectionRecord& record)
{
    CNotifySender* const notifier = vlt::Notifier();
    if (notifier == nullptr)
        VLT_TRACE(40, "RealTimeScanVirusCallBack: no instance CNotifySender! skip the detect event!");
    else if (notifier->Notify(&record, sizeof record))
        VLT_TRACE(40, "RealTimeScanVirusCallBack: success to call CNotifySender::Notify for detected virus.");
    else
        VLT_TRACE(40, "RealTimeScanVirusCallBack: fail to call CNotifySender::Notify for detected virus.");
}

} // namespace

void CALLBACK RealTimeScanVirusCallBack(void* /*context*/, const AsDetectionRecord* record) noexcept
{
    VLT_TRACE(40, "RealtimeScanVirusCallBack called!");
    if (record == nullptr)
        return;
    if (IsForQuarantine(*record))
        Attempt([&] { MoveIntoQuarantine(*record); });
    if (record->noLog == 0)
        Attempt([&] { StartVirusLogThread(*record); });
    NotifyReceivers(*record);
    Attempt([&] { KeepAsLastDetection(*record); });
}

void CALLBACK SetLastScanInfo(const WCHAR* fileName, void* /*context*/) noexcept
{
    if (fileName == nullptr)
        return;
    Attempt([&] {
        const LastScanRecord last{.type = 0, .time = Now(), .file = fileName};
        if (CLastScanInfo().SetLastScanInfo(&last) <= 0)
            VLT_TRACE(20, "Error: CLastScanInfo::SetLastScanInfo");
    });
}

unsigned __stdcall ThreadWriteVirusLogForRealTimeScan(void* recordCopy)
{
    std::unique_ptr<const AsDetectionRecord> record(static_cast<const AsDetectionRecord*>(recordCopy));
    VLT_TRACE(50, "Enter ThreadWriteVirusLogForRealTimeScan()...");
    std::unique_ptr<CVirusLogForRealTimeScan2> log(new (std::nothrow) CVirusLogForRealTimeScan2);
    if (log == nullptr) {
        VLT_TRACE(20, "*** ThreadWriteVirusLogForRealTimeScan() - lpcVirusLog was invalid handle");
        return 1;
    }
    {
        const VlLock lock(VirusLogLock());
        if (!Write(*log, *record))
            VLT_TRACE(20, "*** ThreadWriteVirusLogForRealTimeScan() - Failed to lpcVirusLog->WriteVirusLog().");
    }
    log.reset();
    record.reset();
    VLT_TRACE(50, "Leave ThreadWriteVirusLogForRealTimeScan()...");
    return 0;
}

int GetDetectFileText(const AsDetectionRecord& record, LPWSTR buffer, std::size_t capacity)
{
    if (buffer == nullptr || capacity == 0)
        return 0;
    const WStringView path = vlt::FieldText(record.infectedPath);
    const WStringView second = vlt::FieldText(record.secondPath);
    if (!second.empty() && path.empty())
        return 0;
    std::size_t length = 0;
    for (const WStringView part : {path, second.empty() ? WStringView() : WStringView(TEXT(" (")), second,
                                   second.empty() ? WStringView() : WStringView(TEXT(")"))})
        length += part.copy(buffer + length, capacity - 1 - length);
    buffer[length] = 0;
    return 1;
}
