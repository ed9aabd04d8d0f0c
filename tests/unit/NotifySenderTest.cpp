#include "ARDCommon/NotifySender.h"
#include "tests/unit/ChannelPeers.h"
#include "tests/unit/TraceCapture.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

namespace
{

using namespace vlt::test;
using Lines = std::vector<std::string>;

constexpr DWORD kPayload = 1860;
constexpr unsigned kLong = 60000; // ms

class NotifySender : public testing::Test
{
protected:
    bool Send(std::uint32_t number)
    {
        std::vector<char> message(kPayload, static_cast<char>(number));
        std::memcpy(message.data(), &number, sizeof number);
        return m_sender.Notify(message.data(), kPayload);
    }

    char* Slot(std::size_t index) const { return m_list.Bytes() + index * kNotifySlotSize; }

    static Child Receiver(const std::string& name, std::vector<std::string> rest)
    {
        rest.insert(rest.begin(), {"ch", name});
        Child child("receiver", rest);
        EXPECT_EQ(child.ReadLine(), "ready");
        return child;
    }

    CNotifySender m_sender{"ch", kPayload};
    Section m_list{"Global\\ch_mem_notify_list", sizeof(NotifyList)};
};

TEST_F(NotifySender, LosesNothingAndKeepsTheOrder)
{
    constexpr std::uint32_t kMessages = 1000;
    std::vector<Child> receivers;
    for (const char* name : {"r0", "r1", "r2", "r3"})
        receivers.push_back(
            Receiver(name, {"count", std::to_string(kMessages), name[1] == '0' ? "_evt_notify" : "_evt_sent"}));
    for (std::uint32_t i = 0; i < kMessages; ++i)
        ASSERT_TRUE(Send(i));
    for (Child& receiver : receivers) {
        // A message may stay queued until the next one comes.
        while (receiver.Wait(200) == Child::kStillRunning)
            Send(kMessages);
        EXPECT_EQ(receiver.ReadLine(), "done");
    }
    // Their sections went with them.
    EXPECT_TRUE(Eventually(kLong, [&] {
        Send(0);
        return std::strcmp(Slot(0), "empty") == 0 && std::strcmp(Slot(3), "empty") == 0;
    }));
}

// At the moment it has its message, and while the sender waits for it.
TEST_F(NotifySender, AReceiverThatDiesWithItsMessageHoldsNobodyBackForLong)
{
    Child living = Receiver("living", {"print"});
    Child killedAtOnce = Receiver("r1", {"hold"});
    Child stuck = Receiver("r2", {"hold"});
    const Section seen("Global\\living", 1);
    ASSERT_TRUE(m_sender.Notify("\1\2", 2));
    ASSERT_TRUE(m_sender.Notify("\3", 1));
    EXPECT_EQ(killedAtOnce.ReadLine(), "written");
    killedAtOnce.Kill();
    EXPECT_EQ(stuck.ReadLine(), "written");
    EXPECT_EQ(living.ReadLine(), "0102");
    EXPECT_EQ(killedAtOnce.Wait(kLong), 137);
    // Slots are looked at in order.
    EXPECT_TRUE(Eventually(kLong, [&] { return std::strcmp(Slot(1), "empty") == 0; }));
    EXPECT_EQ(seen.Number(1).load(), 2u);
    stuck.Kill();
    EXPECT_EQ(living.ReadLine(), "03");
    EXPECT_STREQ(Slot(0), "living");
    EXPECT_STREQ(Slot(2), "empty");

    // What is queued goes out before a stop.
    for (const char* text : {"a", "b", "c"})
        ASSERT_TRUE(m_sender.Notify(text, 1));
    m_sender.Stop();
    for (const char* digits : {"61", "62", "63"})
        EXPECT_EQ(living.ReadLine(), digits);
}

TEST_F(NotifySender, BelievesNothingInTheList)
{
    Child living = Receiver("living", {"print"});
    const auto round = [&] {
        CNotifySender sender("ch", kPayload);
        ASSERT_TRUE(sender.Notify("x", 1));
        EXPECT_EQ(living.ReadLine(), "78");
        sender.Stop();
    };
    // No terminator anywhere, also not behind the list; names of the list itself and of an event.
    std::memset(m_list.Bytes(), 'A', 12288);
    std::memcpy(Slot(5), "living", 7);
    std::strcpy(Slot(6), "ch_mem_notify_list");
    std::strcpy(Slot(7), "Global\\ch_mem_notify_list");
    std::strcpy(Slot(8), "ch_evt_notify");
    round();
    for (std::size_t i = 0; i < kNotifySlotCount; ++i)
        EXPECT_STREQ(Slot(i), i == 5 ? "living" : "empty");
    EXPECT_EQ(std::count(Slot(32), m_list.Bytes() + 12288, 'A'), 12288 - 8320);
    // Every slot a living one.
    for (std::size_t i = 0; i < kNotifySlotCount; ++i)
        std::memcpy(Slot(i), "living", 7);
    round();
    EXPECT_STREQ(Slot(31), "living");
    // An empty name ends the list.
    *Slot(1) = 0;
    std::strcpy(Slot(2), "gone");
    round();
    EXPECT_STREQ(Slot(2), "gone");
}

// Someone else made the list before the sender, and a page of it only: 15 slots and a part of one.
TEST(NotifySenderList, IsUsedAsFarAsItGoes)
{
    const Section list("Global\\small_mem_notify_list", 100);
    const Section tooSmall("Global\\small_section", 1);
    std::memset(list.Bytes(), 'A', 4096);
    std::memcpy(list.Bytes() + 14 * kNotifySlotSize, "small_section", 14);
    CNotifySender sender("small", 5000);
    std::string large(4500, 'x');
    ASSERT_TRUE(sender.Notify(large.data(), 4500));
    EXPECT_TRUE(Eventually(kLong, [&] { return std::strcmp(list.Bytes() + 14 * kNotifySlotSize, "empty") == 0; }));
    EXPECT_EQ(std::count(list.Bytes() + 15 * kNotifySlotSize, list.Bytes() + 4096, 'A'), 196);
    EXPECT_EQ(tooSmall.Number(0).load(), 0u);
    EXPECT_EQ(tooSmall.Number(1023).load(), 0u);
}

TEST(NotifySenderTrace, TellsEachStepOfAMessage)
{
    Lines lines = Traced([] {
        CNotifySender sender("Global\\t", kPayload);
        const Section list("Global\\t_mem_notify_list", 1);
        std::memcpy(list.Bytes(), "dead", 5);
        std::memcpy(list.Bytes() + 260, "empty", 6);
        const std::string large(1862, 'x');
        EXPECT_FALSE(sender.Notify(large.data(), 1862));
        EXPECT_TRUE(sender.Notify(large.data(), 1861));
        sender.Stop();
        sender.Stop();
        EXPECT_STREQ(list.Bytes(), "empty");
        const vlt::KernelHandle notify(OpenEventA(EVENT_ALL_ACCESS, FALSE, "Global\\t_evt_notify"));
        EXPECT_EQ(WaitForSingleObject(notify.Get(), 0), WAIT_TIMEOUT);
    });
    for (std::string& line : lines) {
        const std::size_t address = line.find("data = ");
        if (address != std::string::npos)
            line.erase(address);
    }
    const Lines expected{
        "40 NotifySender.cpp: Notify list name : Global\\t_mem_notify_list",
        "40 NotifySender.cpp: Event name : Global\\t_evt_notify",
        "40 VlShareMemory.cpp: CreateFileMapping success : size = 8320, name = Global\\t_mem_notify_list",
        "20 NotifySender.cpp: data size is larger than memory size (1862, 1861)",
        "50 NotifySender.cpp: NotifyToReceiver : ",
        "50 NotifySender.cpp:     size = 1861, ",
        "40 NotifySender.cpp: Scan memfile list[0] : dead",
        "50 NotifySender.cpp: WriteData memfile = dead, ",
        "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = Global\\dead",
        "40 NotifySender.cpp: empty does not exist.",
        "40 NotifySender.cpp: Scan memfile list[1] : empty",
        "40 NotifySender.cpp: Scan memfile list[2] : ",
        "40 NotifySender.cpp: Set hNotifyEvent",
        "50 NotifySender.cpp: CheckAllReadFlag",
        "40 NotifySender.cpp: Scan memfile list[0] : empty",
        "40 NotifySender.cpp: Scan memfile list[1] : empty",
        "40 NotifySender.cpp: Scan memfile list[2] : ",
        "40 NotifySender.cpp: Reset hNotifyEvent",
        "40 NotifySender.cpp: CloseHandle hAddQueue",
        "40 NotifySender.cpp: CloseHandle NotifyEvent"};
    EXPECT_EQ(lines, expected);
}

// A name of another kind of object: nothing is left behind, not even the list.
TEST(NotifySenderTrace, AFailedConstructionThrowsAndFreesEverything)
{
    const Lines lines = Traced([] {
        const Section event("Global\\t_evt_notify", 1);
        EXPECT_THROW(CNotifySender("t", kPayload), int);
        EXPECT_FALSE(vlt::KernelHandle(OpenFileMappingA(FILE_MAP_READ, FALSE, "Global\\t_mem_notify_list")));
    });
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "20 NotifySender.cpp: CreateEvent fails : NotifyEvent (00000006)");
}

} // namespace
