// Programs that hear of detections and ask for exclusions, against the running service.
#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/NotifyFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/service/Lives.h"
#include "tests/service/recording/Recorder.h"
#include "tests/unit/ChannelPeers.h"

#include <algorithm>
#include <cstring>

using namespace vlt::test;

namespace
{

// Detections that the library reports when it may; returns what receivers are to see of them.
Lines HeldDetections(Installation& service, unsigned char count)
{
    std::string bytes;
    Lines payloads;
    for (unsigned char i = 0; i < count; ++i) {
        AsDetectionRecord record;
        std::memset(static_cast<void*>(&record), 0xA0 + i, sizeof record);
        vlt::CopyToField(record.threatName, WStringView(TEXT("Threat")));
        vlt::CopyToField(record.infectedPath, WStringView(TEXT("C:\\x")));
        vlt::CopyToField(record.secondPath, WStringView());
        bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
        payloads.push_back(vlt::record::Hexadecimal(&record, sizeof record));
    }
    WriteBytes(service.File("detect.bin"), bytes);
    service.Instruct("detect", "hold", "1");
    return payloads;
}

Child Receiver(const std::string& name, const std::string& mode)
{
    Child child("receiver", {kVirusFoundChannel, name, mode});
    EXPECT_EQ(child.ReadLine(), "ready");
    return child;
}

const std::string kSource = "40 .\\Detection.cpp RealTimeScanVirusCallBack: ";

} // namespace

TEST(ServiceChannels, EveryReceiverHearsEachDetectionByteForByteAlsoWhenOneDies)
{
    Installation service;
    Lines expected = HeldDetections(service, 3);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    Child first = Receiver("first", "print");
    Child killed = Receiver("killed", "hold");
    Child last = Receiver("last", "print");
    WriteBytes(service.File("detect.go"), "");
    EXPECT_EQ(killed.ReadLine(), "written");
    killed.Kill();
    Lines heard;
    for (int i = 0; i < 3; ++i) {
        heard.push_back(first.ReadLine());
        EXPECT_EQ(last.ReadLine(), heard.back());
    }
    std::sort(heard.begin(), heard.end()); // the library reported them all at once
    EXPECT_EQ(heard, expected);
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    const std::string success = kSource + "success to call CNotifySender::Notify for detected virus.";
    EXPECT_TRUE(Holds(service.Transcript(), {success, success, success}));
}

TEST(ServiceChannels, AStopWaitsForAReceiverThatDoesNotTakeItsMessage)
{
    Installation service;
    HeldDetections(service, 1);
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    Child stuck = Receiver("stuck", "hold");
    WriteBytes(service.File("detect.go"), "");
    EXPECT_EQ(stuck.ReadLine(), "written");
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(Eventually(20000, [&] { return !service.Calls("ASDeInitScan").empty(); }));
    EXPECT_EQ(service.Status().dwCurrentState, DWORD{SERVICE_STOP_PENDING});
    stuck.Kill();
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_TRUE(Holds(service.Transcript(), {"* Reset hNotifyEvent", "* CloseHandle NotifyEvent"}));
}

TEST(ServiceChannels, WithoutTheBroadcastDetectionsAreStillLogged)
{
    Installation service;
    HeldDetections(service, 1);
    {
        // The name is that of another kind of object while the service starts.
        const Section taken(std::string("Global\\") + kVirusFoundChannel + kNotifyEventSuffix, 1);
        ASSERT_TRUE(service.Start());
        ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
        WriteBytes(service.File("detect.go"), "");
        EXPECT_TRUE(Eventually(20000, [&] { return !service.Calls("detected").empty(); }));
    }
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_TRUE(Holds(service.Transcript(), {"20 * CreateEvent fails : NotifyEvent (00000006)",
                                             kSource + "no instance CNotifySender! skip the detect event!"}));
}

TEST(ServiceChannels, ExclusionRequestsReachTheLibraryAsTheyCome)
{
    Installation service;
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    const auto request = [](const char* processId, const char* add) {
        return Child("requester", {kPidExceptionChannel, processId, add}).Wait(30000);
    };
    EXPECT_EQ(request("4294967295", "2"), 0);
    {
        Child killed("requester", {kPidExceptionChannel, "77", "0", "noack"});
        EXPECT_TRUE(Eventually(20000, [&] { return service.Calls("ASAddRemoveExceptionProcess").size() == 2; }));
        killed.Kill();
        killed.Wait(20000);
    }
    EXPECT_EQ(request("78", "-1"), 0);
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    Lines calls;
    for (const Record& call : service.Calls("ASAddRemoveExceptionProcess"))
        calls.push_back(call["handle"] + ' ' + call["processId"] + ' ' + call["add"]);
    EXPECT_EQ(calls, (Lines{"true 4294967295 2", "true 77 0", "true 78 4294967295"}));
}
