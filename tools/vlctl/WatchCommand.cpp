// vlctl watch: each detection at the moment in which the service broadcasts it.
//
// What is printed may take as long as the reader of the output likes.
#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/Channel/DetectionFeed.h"
#include "suite/Channel/DetectionNames.h"
#include "suite/Channel/Interrupt.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/Text.h"

#include <cstdio>

namespace vlt::ctl
{

using namespace suite;

namespace
{

struct Settings {
    std::uint32_t count = 0;          // 0: no end
    std::uint32_t timeoutSeconds = 0; // 0: no end
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

std::string LineOf(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    const SYSTEMTIME& time = detection.time;
    return JsonLine({{"time", Format("%04d-%02d-%02dT%02d:%02d:%02d.%03d", time.wYear, time.wMonth, time.wDay,
                                     time.wHour, time.wMinute, time.wSecond, time.wMilliseconds)},
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
    Json rows = Json::array();
    for (const ReceiverList::Entry& entry : list ? list->Entries() : std::vector<ReceiverList::Entry>())
        rows.push_back({{"slot", entry.slot}, {"live", entry.live}, {"name", Utf8(ToWide(entry.name))}});
    if (rows.empty())
        run.exit = ExitNo;
    PrintList(run, "receivers", rows);
}

void Watch(const Settings& settings, Run& run)
{
    DetectionFeed feed("vlctl_watch", InterruptEvent());
    std::fprintf(stderr, "vlctl: watching; Ctrl-C ends it\n");
    const ULONGLONG deadline =
        settings.timeoutSeconds == 0 ? DetectionFeed::kNever : GetTickCount64() + settings.timeoutSeconds * 1000ull;
    unsigned shown = 0;
    Detection detection;
    while ((settings.count == 0 || shown < settings.count) && feed.Next(detection, deadline)) {
        Print(run.json ? LineOf(detection) : Text(detection));
        ++shown;
        if (const unsigned lost = feed.TakeLost())
            std::fprintf(stderr, "vlctl: %u detections not shown: the output is read too slowly\n", lost);
    }
    if (!feed.Ended() && shown < std::max(settings.count, 1u))
        run.exit = ExitNo;
}

} // namespace

void AddWatchCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word watch = Word(app).Verb("watch", "Show each detection as it happens, until interrupted",
                                      [kept, &run] { Watch(*kept, run); });
    watch.Number("--count", kept->count, 1, 0xFFFFFFFFu, "End after so many");
    watch.Number("--timeout", kept->timeoutSeconds, 1, 1000000,
                 "End after so many seconds; 1 when less than COUNT (default: 1) was shown");
    watch.Json(run);
    const Word receivers = Word(app).Noun("receivers", "Who is told of detections");
    receivers.Verb("list", "Print them; 1 when there are none", [&run] { ListReceivers(run); }).Json(run);
}

} // namespace vlt::ctl
