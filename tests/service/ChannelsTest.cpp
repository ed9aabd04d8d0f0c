// Programs that hear of detections, against the running service.
#include "ARDCommon/NotifyFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/service/Lives.h"
#include "tests/service/recording/Recorder.h"
#include "tests/unit/SharedSection.h"

#include <cstring>

using namespace vlt::test;

namespace
{

const std::string kChannel = std::string("Global\\") + kVirusFoundChannel;

AsDetectionRecord Detection()
{
    AsDetectionRecord record;
    std::memset(static_cast<void*>(&record), 0x5A, sizeof record);
    vlt::CopyToField(record.threatName, WStringView(TEXT("Threat")));
    vlt::CopyToField(record.infectedPath, WStringView(TEXT("C:\\x")));
    vlt::CopyToField(record.secondPath, WStringView());
    return record;
}

void Report(Installation& service, int count)
{
    const AsDetectionRecord record = Detection();
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
    WriteBytes(service.File("detect.bin"), bytes);
}

Child Vlctl(const std::vector<std::string>& arguments)
{
    return Child::Program(Installation::Built("vlctl"), arguments);
}

} // namespace

// A receiver that prints its message and never clears its flag; it takes the second slot.
VLT_CHILD(stuck)
{
    const SharedSection list(kChannel + kNotifyListSuffix, sizeof(NotifyList));
    const SharedSection own("Global\\stuck", sizeof(NotifyMessage) + sizeof(AsDetectionRecord));
    std::strcpy(list.Bytes() + kNotifySlotSize, "stuck");
    std::puts("ready");
    std::fflush(stdout);
    Eventually(60000, [&] { return own.Number(0).load() != 0; });
    std::puts(vlt::record::Hexadecimal(own.Bytes(), sizeof(NotifyMessage) + sizeof(AsDetectionRecord)).c_str());
    std::fflush(stdout);
    Sleep(INFINITE);
    return 0;
}

TEST(ServiceChannels, AReceiverThatKeepsItsMessageHoldsBackOthersAndTheStopUntilItIsKilled)
{
    Installation service;
    Report(service, 2);
    service.Instruct("detect", "hold", "1");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    Child watcher = Vlctl({"watch", "--json", "--count", "2"});
    const SharedSection list(kChannel + kNotifyListSuffix, 1);
    ASSERT_TRUE(Eventually(20000, [&] { return list.NamesSection(0); }));
    Child stuck("stuck");
    EXPECT_EQ(stuck.ReadLine(), "ready");
    WriteBytes(service.File("detect.go"), "");
    const AsDetectionRecord record = Detection();
    EXPECT_EQ(stuck.ReadLine(), "0100000044070000" + vlt::record::Hexadecimal(&record, sizeof record));
    EXPECT_NE(watcher.ReadLine().find("\"Threat\""), std::string::npos);

    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(Eventually(20000, [&] { return !service.Calls("ASDeInitScan").empty(); }));
    EXPECT_EQ(service.Status().dwCurrentState, DWORD{SERVICE_STOP_PENDING});
    stuck.Kill();
    EXPECT_NE(watcher.ReadLine().find("\"Threat\""), std::string::npos);
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    const std::string sent = "40 .\\Detection.cpp RealTimeScanVirusCallBack: success to call CNotifySender::Notify for "
                             "detected virus.";
    EXPECT_TRUE(Holds(service.Transcript(), {sent, sent, "* Reset hNotifyEvent", "* CloseHandle NotifyEvent"}));
}

TEST(ServiceChannels, WithoutTheBroadcastTheServiceRuns)
{
    Installation service;
    Report(service, 1);
    // The name is that of another kind of object.
    const SharedSection taken(kChannel + kNotifyEventSuffix, 1);
    ASSERT_TRUE(service.Live());
    EXPECT_TRUE(Holds(service.Transcript(), {"20 * CreateEvent fails : NotifyEvent (00000006)"}));
    EXPECT_TRUE(Holds(service.Transcript(), {"40 .\\Detection.cpp RealTimeScanVirusCallBack: no instance "
                                             "CNotifySender! skip the detect event!"}));
}
