// vlctl as a receiver of detections and as a requester: with the real service, and with a list and
// messages that somebody with bad intentions has written.
#include "ARDCommon/NotifyFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/service/Installation.h"
#include "tests/tools/AnotherAccount.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <optional>

using namespace vlt::test;
using nlohmann::json;

namespace
{

constexpr unsigned kDeadline = 30000;
const std::string kChannel = std::string("Global\\") + kVirusFoundChannel;

Child Vlctl(const std::vector<std::string>& arguments)
{
    return Child::Program(Installation::Built("vlctl"), arguments);
}

int ExitOf(const std::vector<std::string>& arguments)
{
    return Vlctl(arguments).Wait(kDeadline);
}

// As an account without rights where that is possible.
Child VlctlOfAnother(const std::vector<std::string>& arguments)
{
    std::optional<Child> child = AsAnotherAccount(Installation::Built("vlctl"), arguments);
    return child ? std::move(*child) : Vlctl(arguments);
}

// What vlctl says of who is registered.
std::vector<json> Registered()
{
    Child child = Vlctl({"receivers", "list", "--json"});
    std::string text;
    for (std::string line = child.ReadLine(); !line.empty(); line = child.ReadLine())
        text += line;
    return json::parse(text, nullptr, false).value("receivers", std::vector<json>());
}

bool Watch(std::size_t count)
{
    return Eventually(kDeadline, [&] {
        const std::vector<json> entries = Registered();
        return entries.size() == count &&
               std::all_of(entries.begin(), entries.end(), [](const json& entry) { return entry["live"] == true; });
    });
}

// The files of the next detections that a watcher shows.
std::vector<std::string> Shown(Child& watcher, std::size_t count)
{
    std::vector<std::string> files;
    while (files.size() < count) {
        const json detection = json::parse(watcher.ReadLine(kDeadline), nullptr, false);
        if (!detection.is_object())
            break;
        files.push_back(detection["file"]);
    }
    return files;
}

AsDetectionRecord Detection(WStringView file)
{
    AsDetectionRecord record{};
    vlt::CopyToField(record.threatName, WStringView(TEXT("Threat")));
    vlt::CopyToField(record.infectedPath, file);
    record.firstAction = AS_ACTION_DENY;
    record.firstResult = AS_RESULT_DONE;
    return record;
}

// A section as anybody may open or make it; the whole of it is mapped.
template <typename T>
struct Shared {
    explicit Shared(const std::string& name)
        : mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(T),
                                     vlt::ToWide(name).c_str())),
          view(MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0))
    {
    }
    T* operator->() const { return static_cast<T*>(view.Get()); }

    vlt::KernelHandle mapping;
    vlt::MappedView view;
};

struct Message {
    NotifyMessage head;
    AsDetectionRecord record;
};

// A list that the test has made before the watcher, and the sender's event.
class HostileList
{
public:
    HostileList()
        : m_notify(CreateEventW(nullptr, TRUE, FALSE, vlt::ToWide(kChannel + kNotifyEventSuffix).c_str())),
          list(kChannel + kNotifyListSuffix)
    {
        EXPECT_TRUE(m_notify && list.view);
    }

    void Fill(const char* name)
    {
        for (auto& slot : list->slot)
            vlt::CopyToField(slot, std::string_view(name));
    }

    // The slot of the process, once it has one; wakes the watchers to have it soon.
    std::optional<std::size_t> SlotOf(const Child& watcher)
    {
        const std::string ending = "_vlctl_watch_" + std::to_string(watcher.Id());
        std::optional<std::size_t> found;
        Eventually(kDeadline, [&] {
            for (std::size_t i = 0; i < kNotifySlotCount && !found; ++i) {
                const std::string_view name = vlt::FieldText(list->slot[i]);
                found = name.ends_with(ending) ? std::optional(i) : std::nullopt;
            }
            PulseEvent(m_notify.Get());
            return found.has_value();
        });
        return found;
    }

    // True when the watcher has taken it.
    bool Send(std::size_t slot, std::uint32_t size, const AsDetectionRecord& record)
    {
        const Shared<Message> message("Global\\" + std::string(vlt::FieldText(list->slot[slot])));
        message->head.size = size;
        message->record = record;
        const std::atomic_ref<std::uint32_t> flag(message->head.readFlag);
        flag.store(1);
        SetEvent(m_notify.Get());
        const bool taken = Eventually(kDeadline, [&] { return flag.load() == 0; });
        ResetEvent(m_notify.Get());
        return taken;
    }

private:
    vlt::KernelHandle m_notify;

public:
    const Shared<NotifyList> list;
};

} // namespace

TEST(Watch, EveryWatcherShowsEachDetectionAndOutlivesTheOthersAndTheService)
{
    Installation service;
    service.Instruct("detect", "hold", "1");
    const std::vector<AsDetectionRecord> records{Detection(TEXT("C:\\1")), Detection(TEXT("C:\\2")),
                                                 Detection(TEXT("C:\\3"))};
    WriteBytes(service.File("detect.bin"),
               {reinterpret_cast<const char*>(records.data()), records.size() * sizeof records[0]});
    const std::vector<std::string> all{"C:\\1", "C:\\2", "C:\\3"};
    Child first = Vlctl({"watch", "--json"});
    ASSERT_TRUE(Watch(1)); // before there is a service
    Child second = VlctlOfAnother({"watch", "--json"});
    ASSERT_TRUE(Watch(2));
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    WriteBytes(service.File("detect.go"), "");
    std::vector<std::string> shown = Shown(first, 3);
    EXPECT_EQ(Shown(second, 3), shown);
    std::sort(shown.begin(), shown.end());
    EXPECT_EQ(shown, all);

    std::filesystem::remove(service.File("detect.go"));
    Child third = Vlctl({"watch", "--json", "--count", "3"});
    ASSERT_TRUE(Watch(3));
    first.Kill();
    if (Installation::HasStatusReports()) {
        const vlt::KernelHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, service.Status().dwProcessId));
        ASSERT_TRUE(TerminateProcess(process.Get(), 1));
    } else {
        ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP)); // this manager shows a killed one as running
    }
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    WriteBytes(service.File("detect.go"), "");
    shown = Shown(second, 3);
    EXPECT_EQ(Shown(third, 3), shown);
    std::sort(shown.begin(), shown.end());
    EXPECT_EQ(shown, all);
    EXPECT_EQ(third.Wait(kDeadline), 0);
    EXPECT_TRUE(Watch(1)); // the service has freed the slot of the killed one
}

TEST(Watch, AHostileListAndHostileMessagesDoNoHarm)
{
    if (!kSignalsArrive)
        GTEST_SKIP() << "the thread sanitizer delays signals";
    HostileList hostile;
    std::memset(&hostile.list->slot, 'x', sizeof hostile.list->slot);
    Child watcher = Vlctl({"watch", "--json", "--count", "1"});
    std::optional<std::size_t> slot = hostile.SlotOf(watcher);
    ASSERT_EQ(slot, 0u);
    const std::string name(vlt::FieldText(hostile.list->slot[0]));

    // Taken away, by a sender or by somebody who needs them all; and out of the sender's sight.
    hostile.Fill(name.c_str());
    vlt::CopyToField(hostile.list->slot[0], std::string_view("empty"));
    EXPECT_EQ(ExitOf({"watch", "--timeout", "1"}), 1); // there is one left
    vlt::CopyToField(hostile.list->slot[0], std::string_view(name));
    EXPECT_EQ(ExitOf({"watch", "--timeout", "60"}), 2);
    hostile.Fill("empty");
    ASSERT_EQ(hostile.SlotOf(watcher), 0u);
    hostile.Fill("");
    vlt::CopyToField(hostile.list->slot[5], std::string_view(name));
    ASSERT_TRUE(Eventually(kDeadline, [&] { return hostile.SlotOf(watcher) == 0u; }));

    AsDetectionRecord record = Detection(TEXT("C:\\a"));
    EXPECT_TRUE(hostile.Send(0, 0xFFFFFFFFu, record));
    EXPECT_TRUE(hostile.Send(0, 0, record));
    record.threatName[0] = 0xD800;
    std::fill(std::begin(record.infectedPath), std::end(record.infectedPath), WCHAR('\n'));
    record.secondAction = record.denied = 0xFFFFFFFFu;
    EXPECT_TRUE(hostile.Send(0, sizeof record, record));
    const json shown = json::parse(watcher.ReadLine(kDeadline), nullptr, false);
    EXPECT_EQ(shown["file"], std::string(260, '\n'));
    EXPECT_EQ(shown["secondAction"], 0xFFFFFFFFu);
    EXPECT_EQ(shown["denied"], 0xFFFFFFFFu);
    EXPECT_EQ(shown.size(), 15u);
    EXPECT_EQ(watcher.Wait(kDeadline), 0);
    EXPECT_EQ(vlt::FieldText(hostile.list->slot[0]), "empty");

    Child text = Vlctl({"watch"});
    ASSERT_TRUE(hostile.SlotOf(text) == 0u);
    record = Detection(TEXT("C:\\a\x001B[2J"));
    vlt::CopyToField(record.secondPath, WStringView(TEXT("inner\x202E")));
    EXPECT_TRUE(hostile.Send(0, sizeof record, record));
    const std::string line = text.ReadLine(kDeadline);
    EXPECT_EQ(line.substr(std::min<std::size_t>(line.size(), 19)),
              "  Threat  deny done  C:\\a\\u001b[2J (inner\\u202e)");
    if (!Installation::HasStatusReports())
        return; // no signals
    EXPECT_EQ(Child::Program("/bin/kill", {std::to_string(text.Id())}).Wait(kDeadline), 0);
    EXPECT_EQ(text.Wait(kDeadline), 0);
    EXPECT_EQ(vlt::FieldText(hostile.list->slot[0]), "empty");
}

TEST(Exclude, RequestsAreServedOneAfterAnotherAndOutliveAKilledRequester)
{
    Installation service;
    EXPECT_EQ(ExitOf({"process", "exclude", "4000"}), 69);
    EXPECT_EQ(ExitOf({"process", "exclude", "0"}), 64);
    service.Instruct("ASAddRemoveExceptionProcess", "hold", "1");
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    Child killed = Vlctl({"process", "exclude", "4001"});
    ASSERT_TRUE(Eventually(kDeadline, [&] { return service.Calls("ASAddRemoveExceptionProcess").size() == 1; }));
    Child waiting = Vlctl({"process", "include", "4002", "--timeout", "60"});
    EXPECT_EQ(ExitOf({"process", "exclude", "4003", "--timeout", "1"}), 2);
    killed.Kill();
    WriteBytes(service.File("ASAddRemoveExceptionProcess.go"), "");
    EXPECT_EQ(waiting.Wait(60000), 0);
    EXPECT_EQ(ExitOf({"process", "exclude", "4294967295"}), 0);
    std::vector<std::string> calls;
    for (const Record& call : service.Calls("ASAddRemoveExceptionProcess"))
        calls.push_back(call["processId"] + ' ' + call["add"]);
    EXPECT_EQ(calls, (std::vector<std::string>{"4001 1", "4002 0", "4294967295 1"}));
}
