// vlctl watch: each detection at the moment in which the service broadcasts it.
//
// What is printed may take as long as the reader of the output likes.
#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/Channel/DetectionFeed.h"
#include "suite/Channel/DetectionNames.h"
#include "tools/vlctl/Command.h"
#include "suite/Channel/Interrupt.h"
#include "tools/vlctl/Text.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace vlt::ctl
{

using namespace suite;

namespace
{

struct Settings {
    unsigned count = 0;
    unsigned timeoutSeconds = 0;
    bool list = false;
};

std::string Text(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    const SYSTEMTIME& time = detection.time;
    std::string actions = ActionText(record.firstAction, record.firstResult);
    if (record.secondAction != AS_ACTION_NONE)
        actions += ", " + ActionText(record.secondAction, record.secondResult);
    std::string file = Printable(FieldText(record.infectedPath));
    if (record.secondPath[0] != 0)
        file += (file.empty() ? "(" : " (") + Printable(FieldText(record.secondPath)) + ')';
    return Format("%04d-%02d-%02d %02d:%02d:%02d  %s  %s  %s\n", time.wYear, time.wMonth, time.wDay, time.wHour,
                  time.wMinute, time.wSecond, Printable(FieldText(record.threatName)), actions, file);
}

std::string Line(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

std::string Json(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    const SYSTEMTIME& time = detection.time;
    return Line({{"time", Format("%04d-%02d-%02dT%02d:%02d:%02d.%03d", time.wYear, time.wMonth, time.wDay, time.wHour,
                                 time.wMinute, time.wSecond, time.wMilliseconds)},
                 {"threat", Utf8(FieldText(record.threatName))},
                 {"firstAction", record.firstAction},
                 {"firstResult", record.firstResult},
                 {"secondAction", record.secondAction},
                 {"secondResult", record.secondResult},
                 {"processId", record.processId},
                 {"direction", record.direction},
                 {"file", Utf8(FieldText(record.infectedPath))},
                 {"encodedFile", Utf8(FieldText(record.encodedPath))},
                 {"secondFile", Utf8(FieldText(record.secondPath))},
                 {"threatKind", record.threatKind},
                 {"noLog", record.noLog},
                 {"denied", record.denied}});
}

void ListReceivers(Run& run)
{
    const std::optional<ReceiverList> list = ReceiverList::Open(kVirusFoundChannel);
    std::vector<std::vector<std::string>> rows{{"SLOT", "SECTION", "NAME"}};
    for (const ReceiverList::Entry& entry : list ? list->Entries() : std::vector<ReceiverList::Entry>()) {
        const WString name = ToWide(entry.name);
        if (run.json)
            Print(Line({{"slot", entry.slot}, {"live", entry.live}, {"name", Utf8(name)}}));
        rows.push_back({std::to_string(entry.slot), entry.live ? "live" : "gone", Printable(name)});
    }
    if (rows.size() == 1)
        run.exit = ExitNo;
    else if (!run.json)
        Print(Table(rows));
}

void Watch(const Settings& settings, Run& run)
{
    if (settings.list)
        return ListReceivers(run);
    DetectionFeed feed("vlctl_watch", InterruptEvent());
    std::fprintf(stderr, "vlctl: watching; Ctrl-C ends it\n");
    const ULONGLONG deadline =
        settings.timeoutSeconds == 0 ? DetectionFeed::kNever : GetTickCount64() + settings.timeoutSeconds * 1000ull;
    unsigned shown = 0;
    Detection detection;
    while ((settings.count == 0 || shown < settings.count) && feed.Next(detection, deadline)) {
        Print(run.json ? Json(detection) : Text(detection));
        ++shown;
        if (const unsigned lost = feed.TakeLost())
            std::fprintf(stderr, "vlctl: %u detections not shown: the output is read too slowly\n", lost);
    }
    if (!feed.Ended() && shown < std::max(settings.count, 1u))
        run.exit = ExitNo;
}

} // namespace

void AddWatchCommand(CLI::App& app, Run& run)
{
    auto settings = std::make_shared<Settings>();
    CLI::App* const watch = app.add_subcommand("watch", "Show each detection as it happens, until interrupted");
    watch->add_option("--count", settings->count, "End after so many")->check(CLI::PositiveNumber);
    watch
        ->add_option("--timeout", settings->timeoutSeconds,
                     "End after so many seconds; 1 when less than COUNT (default: 1) was shown")
        ->check(CLI::Range(1u, 1000000u));
    watch->add_flag("--list", settings->list, "Show who is watching instead; 1 when nobody is");
    watch->add_flag("--json", run.json, "Print one JSON object a line");
    watch->callback([settings, &run] { Watch(*settings, run); });
}

} // namespace vlt::ctl
