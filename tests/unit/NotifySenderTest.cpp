#include "ARDCommon/NotifySender.h"
#include "engine/ArdScanAbi.h"
#include "tests/support/Support.h"
#include "tests/unit/SharedSection.h"
#include "tests/unit/TraceCapture.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>

namespace
{

using namespace vlt::test;

constexpr DWORD kPayload = sizeof(AsDetectionRecord);
constexpr unsigned kDeadline = 60000; // ms

// The real receivers are programs of the suite.
TEST(NotifySender, LosesNothingAndKeepsTheOrder)
{
    constexpr std::uint32_t kMessages = 1000;
    CNotifySender sender(kVirusFoundChannel, kPayload);
    const SharedSection list(std::string("Global\\") + kVirusFoundChannel + kNotifyListSuffix, 1);
    std::vector<Child> watchers;
    for (unsigned i = 0; i < 3; ++i) {
        watchers.push_back(
            Child::Program(ProductFolder() / VLT_VLCTL, {"watch", "--json", "--count", std::to_string(kMessages)}));
    }
    for (std::size_t i = 0; i < watchers.size(); ++i)
        ASSERT_TRUE(Eventually(kDeadline, [&] { return list.NamesSection(i * kNotifySlotSize); }));
    AsDetectionRecord record{};
    for (; record.processId <= kMessages; ++record.processId) // the last may wait for one more
        ASSERT_TRUE(sender.Notify(&record, sizeof record));
    for (Child& watcher : watchers) {
        for (std::uint32_t i = 0; i < kMessages; ++i) {
            const std::string line = watcher.ReadLine(kDeadline);
            ASSERT_NE(line.find("\"processId\":" + std::to_string(i) + ","), std::string::npos) << i << ": " << line;
        }
        EXPECT_EQ(watcher.Wait(kDeadline), 0);
    }
}

TEST(NotifySender, BelievesNothingInTheList)
{
    const SharedSection list("Global\\ch_mem_notify_list", sizeof(NotifyList));
    const SharedSection living("Global\\living", 1);
    const auto slot = [&](std::size_t i) { return list.Bytes() + i * kNotifySlotSize; };
    const auto sendOne = [&] {
        CNotifySender sender("ch", 5000);
        ASSERT_TRUE(sender.Notify("xyz", 3));
        const vlt::KernelHandle notify(OpenEventA(EVENT_ALL_ACCESS, FALSE, "Global\\ch_evt_notify"));
        ASSERT_EQ(WaitForSingleObject(notify.Get(), kDeadline), WAIT_OBJECT_0); // written to every slot's section
        EXPECT_EQ(living.Number(0).load(), 1u);
        EXPECT_EQ(living.Number(1).load(), 3u);
        EXPECT_STREQ(living.Bytes() + 8, "xyz");
        living.Number(0).store(0);
    };
    // No terminator anywhere, also not behind the list; names of the list itself and of an event.
    std::memset(list.Bytes(), 'A', 12288);
    const std::pair<std::size_t, const char*> names[] = {
        {5, "living"}, {6, "ch_mem_notify_list"}, {7, "Global\\ch_mem_notify_list"}, {8, "ch_evt_notify"}};
    for (const auto& [index, name] : names)
        std::strcpy(slot(index), name);
    sendOne();
    for (std::size_t i = 0; i < kNotifySlotCount; ++i)
        EXPECT_STREQ(slot(i), i == 5 ? "living" : "empty") << i;
    EXPECT_EQ(std::count(slot(32), list.Bytes() + 12288, 'A'), 12288 - 8320);

    // Every slot a living one; then an empty one, which ends the list.
    for (std::size_t i = 0; i < kNotifySlotCount; ++i)
        std::strcpy(slot(i), "living");
    sendOne();
    EXPECT_STREQ(slot(31), "living");
    *slot(1) = 0;
    std::strcpy(slot(2), "gone");
    sendOne();
    EXPECT_STREQ(slot(2), "gone");
}

// Someone else made the list before the sender, and a page of it only: 15 slots and a part of one.
TEST(NotifySender, UsesTheListAndTheSectionsAsFarAsTheyGo)
{
    const SharedSection list("Global\\ch_mem_notify_list", 100);
    const SharedSection small("Global\\small", 1);
    char* const last = list.Bytes() + 14 * kNotifySlotSize;
    std::memset(list.Bytes(), 'A', 4096);
    std::strcpy(last, "small");
    {
        CNotifySender sender("ch", 5000);
        ASSERT_TRUE(sender.Notify(std::string(4096 - 7, 'x').data(), 4096 - 7));
    }
    EXPECT_STREQ(last, "empty");
    EXPECT_EQ(std::count(last + kNotifySlotSize, list.Bytes() + 4096, 'A'), 4096 - 15 * 260);
    EXPECT_EQ(std::count(small.Bytes(), small.Bytes() + 4096, 0), 4096);
}

// One receiver is gone, one keeps its flag until it goes too.
TEST(NotifySender, TellsEachStepOfAMessage)
{
    const std::string text = TracedText([] {
        CNotifySender sender("Global\\t", kPayload);
        const SharedSection list("Global\\t_mem_notify_list", 1);
        std::optional<SharedSection> stuck(std::in_place, "Global\\stuck", 1);
        std::strcpy(list.Bytes(), "dead");
        std::strcpy(list.Bytes() + 260, "empty");
        std::strcpy(list.Bytes() + 520, "stuck");
        const std::string large(1862, 'x');
        EXPECT_FALSE(sender.Notify(large.data(), 1862));
        EXPECT_TRUE(sender.Notify(large.data(), 1861));
        EXPECT_TRUE(Eventually(kDeadline, [] {
            return ReadBytes(ProgramFolder() / "recorded.log").find("have not read") != std::string::npos;
        }));
        const vlt::KernelHandle notify(OpenEventA(EVENT_ALL_ACCESS, FALSE, "Global\\t_evt_notify"));
        EXPECT_EQ(WaitForSingleObject(notify.Get(), 0), WAIT_OBJECT_0);
        stuck.reset();
        sender.Stop();
        sender.Stop();
        EXPECT_EQ(WaitForSingleObject(notify.Get(), 0), WAIT_TIMEOUT);
        EXPECT_STREQ(list.Bytes() + 520, "empty");
    });
    const std::string list = "Global\\t_mem_notify_list\n", scan = "40 NotifySender.cpp: Scan memfile list";
    const std::string missing = "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = Global\\";
    EXPECT_EQ(text, "40 NotifySender.cpp: Notify list name : " + list +
                        "40 NotifySender.cpp: Event name : Global\\t_evt_notify\n"
                        "40 VlShareMemory.cpp: CreateFileMapping success : size = 8320, name = " +
                        list +
                        "20 NotifySender.cpp: data size is larger than memory size (1862, 1861)\n"
                        "50 NotifySender.cpp: NotifyToReceiver : \n50 NotifySender.cpp:     size = 1861, \n" +
                        scan + "[0] : dead\n50 NotifySender.cpp: WriteData memfile = dead, \n" + missing +
                        "dead\n"
                        "40 NotifySender.cpp: empty does not exist.\n" +
                        scan + "[1] : empty\n" + scan +
                        "[2] : stuck\n"
                        "50 NotifySender.cpp: WriteData memfile = stuck, \n" +
                        scan +
                        "[3] : \n"
                        "40 NotifySender.cpp: Set hNotifyEvent\n50 NotifySender.cpp: CheckAllReadFlag\n" +
                        scan + "[0] : empty\n" + scan + "[1] : empty\n" + scan +
                        "[2] : stuck\n"
                        "50 NotifySender.cpp: CheckReadFlag memfile = stuck\n"
                        "40 NotifySender.cpp: Receiver have not read stuck, 1\n" +
                        missing +
                        "stuck\n"
                        "40 NotifySender.cpp:  does not exist.\n" +
                        scan +
                        "[3] : \n"
                        "40 NotifySender.cpp: Reset hNotifyEvent\n"
                        "40 NotifySender.cpp: CloseHandle hAddQueue\n40 NotifySender.cpp: CloseHandle NotifyEvent\n");
}

TEST(NotifySender, AFailedConstructionThrowsAndFreesEverything)
{
    const SharedSection otherKind("Global\\t_evt_notify", 1);
    EXPECT_THROW(CNotifySender("t", kPayload), int);
    EXPECT_FALSE(vlt::KernelHandle(OpenFileMappingA(FILE_MAP_READ, FALSE, "Global\\t_mem_notify_list")));
}

} // namespace
