#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/ReceivePidExceptionList.h"
#include "tests/unit/ChannelPeers.h"
#include "tests/unit/TraceCapture.h"

#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace
{

using namespace vlt::test;
using Lines = std::vector<std::string>;
using Requests = std::vector<std::pair<DWORD, LONG>>;

class Recorder : public CIpcReceiver
{
public:
    explicit Recorder(const char* base) { SetName(base); }
    ~Recorder() override { Stop(); }

    void OnReceive(const void* view) override
    {
        PidExceptionRequest request;
        std::memcpy(&request, view, sizeof request);
        const std::lock_guard lock(m_mutex);
        m_requests.emplace_back(request.processId, request.add);
    }
    Requests Taken()
    {
        const std::lock_guard lock(m_mutex);
        return m_requests;
    }

private:
    std::mutex m_mutex;
    Requests m_requests;
};

int Request(const char* base, const char* processId, const char* add)
{
    return Child("requester", {base, processId, add}).Wait(30000);
}

TEST(IpcReceiver, ServesEveryRequesterAndOutlivesKilledOnes)
{
    Recorder receiver("ch");
    ASSERT_TRUE(receiver.Start());
    EXPECT_FALSE(receiver.Start());
    EXPECT_EQ(Request("ch", "4294967295", "-2"), 0);
    {
        Child killed("requester", {"ch", "7", "0", "noack"});
        EXPECT_EQ(killed.ReadLine(), "sent");
        EXPECT_TRUE(Eventually(20000, [&] { return receiver.Taken().size() == 2; }));
        killed.Kill();
        killed.Wait(20000);
    }
    EXPECT_EQ(Request("ch", "8", "1"), 0);
    EXPECT_EQ(receiver.Taken(), (Requests{{4294967295u, -2}, {7, 0}, {8, 1}}));
    receiver.Stop();
    receiver.Stop();
    ASSERT_TRUE(receiver.Start());
    EXPECT_EQ(Request("ch", "9", "1"), 0);
}

// The event is set without a pause by another thread, as any account could.
TEST(IpcReceiver, StopsUnderAStormOfRequestsAndRightAfterItsStart)
{
    const Section request("Global\\storm_mem_ipc", sizeof(PidExceptionRequest));
    const vlt::KernelHandle event(CreateEventA(DefSecAttr().Get(), TRUE, FALSE, "Global\\storm_evt_ipc"));
    std::atomic<bool> over = false;
    std::thread storm([&] {
        while (!over)
            SetEvent(event.Get());
    });
    for (int i = 0; i < 50; ++i) {
        Recorder receiver("storm");
        ASSERT_TRUE(receiver.Start());
        if (i % 2 == 0) {
            EXPECT_TRUE(Eventually(20000, [&] { return !receiver.Taken().empty(); }));
        }
        receiver.Stop();
    }
    over = true;
    storm.join();
}

TEST(IpcReceiver, EndsForGoodAtARequestWithoutASection)
{
    const Lines lines = Traced([] {
        Recorder receiver("ch");
        ASSERT_TRUE(receiver.Start());
        const vlt::KernelHandle event(OpenEventA(EVENT_ALL_ACCESS, FALSE, "Global\\ch_evt_ipc"));
        SetEvent(event.Get());
        EXPECT_TRUE(Eventually(20000, [&] { return WaitForSingleObject(event.Get(), 0) == WAIT_TIMEOUT; }));
        receiver.Stop();
        EXPECT_TRUE(receiver.Taken().empty());

        const Section request("Global\\ch_mem_ipc", sizeof(PidExceptionRequest));
        Recorder second("Global\\ch");
        ASSERT_TRUE(second.Start());
        second.Stop();

        const Section otherKind("Global\\taken_evt_ipc", 1);
        Recorder refused("taken");
        EXPECT_TRUE(refused.Start());
        refused.Stop();

        CReceivePidExceptionList list;
        EXPECT_FALSE(list.Create(nullptr));
        EXPECT_FALSE(list.Create(""));
        EXPECT_EQ(list.AddExceptionProcessID(4000000000u, -2), 0);
    });
    EXPECT_EQ(lines,
              (Lines{"40 IpcReceiver.cpp: Notify event is pulsed",
                     "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = Global\\ch_mem_ipc",
                     "40 IpcReceiver.cpp: Stop event is pulsed", "20 IpcReceiver.cpp: Failed to create hEvent err( 6 )",
                     "40 ReceivePidExceptionList.cpp: AddExceptionProcessID( pid = 4000000000, add = -2",
                     "40 ReceivePidExceptionList.cpp: Error: GetProcAddress( ASAddRemoveExceptionProcess )"}));
}

} // namespace
