#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/ReceivePidExceptionList.h"
#include "tests/support/Support.h"
#include "tests/unit/SharedSection.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{

using namespace vlt::test;

class Counter : public CIpcReceiver
{
public:
    explicit Counter(const char* base) { SetName(base); }
    ~Counter() override { Stop(); }
    void OnReceive(const void*) override { ++taken; }

    std::atomic<unsigned> taken = 0;
};

// The event is set without a pause, as any account could do it.
TEST(IpcReceiver, StopsUnderAStormOfRequestsAndRightAfterItsStart)
{
    const SharedSection request("Global\\ch_mem_ipc", sizeof(PidExceptionRequest));
    const vlt::KernelHandle event(CreateEventA(nullptr, TRUE, FALSE, "Global\\ch_evt_ipc"));
    std::atomic<bool> over = false;
    std::thread storm([&] {
        while (!over)
            SetEvent(event.Get());
    });
    for (int i = 0; i < 50; ++i) {
        Counter receiver("ch");
        ASSERT_TRUE(receiver.Start());
        EXPECT_FALSE(receiver.Start());
        if (i % 2 == 0) {
            EXPECT_TRUE(Eventually(20000, [&] { return receiver.taken != 0; }));
        }
        receiver.Stop();
    }
    over = true;
    storm.join();
}

TEST(IpcReceiver, EndsForGoodAtARequestWithoutASection)
{
    const std::string text = TracedText([] {
        Counter receiver("ch");
        ASSERT_TRUE(receiver.Start());
        const vlt::KernelHandle event(OpenEventA(EVENT_ALL_ACCESS, FALSE, "Global\\ch_evt_ipc"));
        SetEvent(event.Get());
        EXPECT_TRUE(Eventually(20000, [&] { return WaitForSingleObject(event.Get(), 0) == WAIT_TIMEOUT; }));
        receiver.Stop();
        EXPECT_EQ(receiver.taken, 0u);

        Counter second("Global\\ch"); // the same channel
        ASSERT_TRUE(second.Start());
        second.Stop();
        const SharedSection otherKind("Global\\taken_evt_ipc", 1);
        Counter refused("taken");
        EXPECT_TRUE(refused.Start());
        refused.Stop();

        CReceivePidExceptionList list;
        EXPECT_FALSE(list.Create(nullptr) || list.Create(""));
        EXPECT_EQ(list.AddExceptionProcessID(4000000000u, -2), 0);
    });
    EXPECT_EQ(text, "40 IpcReceiver.cpp: Notify event is pulsed\n"
                    "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = Global\\ch_mem_ipc\n"
                    "40 IpcReceiver.cpp: Stop event is pulsed\n20 IpcReceiver.cpp: Failed to create hEvent err( 6 )\n"
                    "40 ReceivePidExceptionList.cpp: AddExceptionProcessID( pid = 4000000000, add = -2\n"
                    "40 ReceivePidExceptionList.cpp: Error: GetProcAddress( ASAddRemoveExceptionProcess )\n");
}

} // namespace
