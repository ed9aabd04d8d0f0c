// Many detections at once, with names of every kind, through the whole callback: each leaves its file, its
// record, its log line and a message to every receiver, and none waits for a receiver.
#include "ARDCommon/LastScanInfo.h"
#include "ARDCommon/ProgramFolder.h"
#include "platform/Text.h"
#include "realtime/Detection.h"
#include "realtime/State.h"
#include "suite/Channel/NotifyReceiver.h"
#include "tests/suite/ScanLibrary.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <thread>

using namespace vlt::test;

namespace
{

constexpr unsigned kThreads = 16;
#ifdef _WIN32
constexpr unsigned kEach = 25; // Wine takes its time
#else
constexpr unsigned kEach = 125;
#endif
constexpr unsigned kCount = kThreads * kEach;
constexpr unsigned kDeadline = 200'000; // ms
constexpr const char* kChannel = "storm";

WString Number(unsigned number)
{
    return vlt::ToWide(std::to_string(number));
}

// Ordinary, the longest that a record holds, outside every code page, and with what ends a line elsewhere.
WString PathOf(unsigned number)
{
    const WString path = TEXT("C:\\d\\") + Number(number);
    switch (number % 4) {
    case 1:
        return path + WString(259 - path.size(), TEXT('n'));
    case 2:
        return path + TEXT("\\\xD83D\x20AC\xDC80.txt");
    case 3:
        return path + TEXT("\t\x01\n|\x7F.txt");
    default:
        return path + TEXT("\\a b.txt");
    }
}

AsDetectionRecord Detection(unsigned number)
{
    AsDetectionRecord record{};
    std::fill_n(record.threatName, number % 8 == 0 ? std::size(record.threatName) : 6,
                TEXT('T')); // also without an end
    vlt::CopyToField(record.infectedPath, WStringView(PathOf(number)));
    vlt::CopyToField(record.encodedPath, WStringView(Number(number) + TEXT(".bin")));
    record.firstAction = AS_ACTION_QUARANTINE;
    record.firstResult = AS_RESULT_DONE;
    record.processId = number;
    return record;
}

// Of a detection's line all but the date and the time.
WString LineOf(unsigned number)
{
    return TEXT("|01048576|00000001|2|1|") + WString(vlt::FieldText(Detection(number).threatName)) + TEXT("|") +
           PathOf(number) + TEXT("|2|1|0|0");
}

// Those in the logs of today, and of yesterday when it is just past midnight.
std::multiset<WString> LoggedLines()
{
    std::multiset<WString> lines;
    for (const auto& file : std::filesystem::directory_iterator(ProgramFolder() / "Log")) {
        const std::string bytes = ReadBytes(file.path());
        WString text(bytes.size() / sizeof(WCHAR), 0);
        std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
        text.erase(0, !text.empty() && text[0] == 0xFEFF);
        for (std::size_t at = 0, end = 0; (end = text.find(TEXT("\r\n"), at)) != text.npos; at = end + 2)
            lines.insert(text.substr(at + 15, end - at - 15));
    }
    return lines;
}

void ExpectEachInTheStore(CQuarantine& store, const TempFolder& folder)
{
    std::set<unsigned> kept;
    QuarantineRecord record{};
    while (store._ReadQuarantineDBW(&record)) {
        const std::string content = ReadBytes(folder.HostPath(vlt::ToNarrow(vlt::FieldText(record.quarantinedName))));
        ASSERT_FALSE(content.empty());
        const unsigned number = static_cast<unsigned>(std::stoul(content));
        EXPECT_TRUE(kept.insert(number).second) << number;
        EXPECT_EQ(WString(vlt::FieldText(record.sourceFolder)) + WString(vlt::FieldText(record.sourceName)),
                  PathOf(number));
        EXPECT_EQ(vlt::FieldText(record.threatName).size(), number % 8 == 0 ? 127u : 6u);
    }
    EXPECT_EQ(store.LastErrorCode(), 0u);
    store.CloseEnumerations();
    EXPECT_EQ(kept.size(), kCount);
}

} // namespace

// Registers, and begins to take messages when it is told to. Prints how many different ones came.
VLT_CHILD(receiver)
{
    vlt::suite::NotifyReceiver receiver(kChannel, "storm.exe");
    const vlt::KernelHandle all(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::puts("registered");
    std::fflush(stdout);
    std::getchar();
    std::set<std::uint32_t> numbers;
    receiver.Run(all.Get(), [&](std::span<const BYTE> payload, DWORD size) {
        AsDetectionRecord record{};
        if (size != sizeof record || payload.size() != sizeof record)
            return;
        std::memcpy(&record, payload.data(), sizeof record);
        const AsDetectionRecord expected = Detection(record.processId);
        if (std::memcmp(&record, &expected, sizeof record) == 0 && numbers.insert(record.processId).second &&
            numbers.size() == kCount)
            SetEvent(all.Get());
    });
    std::printf("%zu\n", numbers.size());
    return 0;
}

TEST(DetectionStorm, NothingIsLost)
{
    std::filesystem::remove_all(ProgramFolder() / "Log");
    const ScanLibrary library;
    const TempFolder folder;
    for (unsigned i = 0; i < kCount; ++i)
        WriteBytes(folder.HostPath(std::to_string(i) + ".bin"), std::to_string(i));
    vlt::RealtimeState& state = vlt::Realtime();
    ASSERT_EQ(state.quarantine.QuarantineInitW(library.Module(), library.Handle(), folder.PathW().c_str()), 1);
    state.notifier = std::make_unique<CNotifySender>(kChannel, DWORD{sizeof(AsDetectionRecord)});
    state.publishedNotifier = state.notifier.get();
    std::vector<Child> receivers;
    for (int i = 0; i < 2; ++i) {
        receivers.emplace_back("receiver");
        ASSERT_EQ(receivers.back().ReadLine(), "registered");
    }

    std::vector<std::jthread> threads;
    for (unsigned t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (unsigned i = 0; i < kEach; ++i) {
                const AsDetectionRecord record = Detection(t * kEach + i);
                RealTimeScanVirusCallBack(nullptr, &record);
            }
        });
    threads.clear();
    ExpectEachInTheStore(state.quarantine, folder);

    // No callback has waited for them until now.
    for (Child& receiver : receivers)
        receiver.WriteLine("go");
    for (Child& receiver : receivers) {
        EXPECT_EQ(receiver.ReadLine(kDeadline), std::to_string(kCount));
        EXPECT_EQ(receiver.Wait(kDeadline), 0);
    }
    std::multiset<WString> expected;
    for (unsigned i = 0; i < kCount; ++i)
        expected.insert(LineOf(i));
    EXPECT_TRUE(Eventually(kDeadline, [&] { return LoggedLines().size() == kCount; })) << LoggedLines().size();
    EXPECT_EQ(LoggedLines(), expected);
    LastDetectRecord last{};
    EXPECT_EQ(CLastScanInfo().GetLastDetectInfo(&last), 1);
    EXPECT_EQ(last.type, 0u);

    state.publishedNotifier = nullptr;
    state.notifier->Stop();
    state.notifier.reset();
    state.quarantine.QuarantineClose();
}
