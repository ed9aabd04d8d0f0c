#include "realtime/Detection.h"

#include "ARDCommon/VirusLog.h"
#include "ARDCommon/VlCriticalSection.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/State.h"

#include <memory>
#include <new>

namespace
{

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
    // Left out: moving a file that the library has encoded into the quarantine store.
    if (record->noLog == 0)
        StartVirusLogThread(*record);
    NotifyReceivers(*record);
    // Left out: the last-detection record in the registry, with GetDetectFileText's text.
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
