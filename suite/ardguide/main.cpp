// ardguide, the tray program: shows each detection of the service to the user of a session, on the terminal
// that is its standard output. The service starts it in every session on the event "Event_RestartARD"
// (ARDCommon/TrayRestart.h); a user may start it too. It ends with Ctrl-C or with its terminal. Exit code 0,
// or 1 when it cannot listen.
#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/ardguide/Terminal.h"
#include "suite/Channel/DetectionFeed.h"
#include "suite/Channel/DetectionNames.h"
#include "suite/Channel/Interrupt.h"
#include "suite/Channel/Text.h"

#include <cstdio>

namespace
{

using namespace vlt;
using namespace vlt::suite;

constexpr ULONGLONG kTerminalLook = 5000; // milliseconds

std::string Notification(const Detection& detection)
{
    const AsDetectionRecord& record = detection.record;
    std::string text = Format("[Ardentis] %02d:%02d  Threat found: %s\n", detection.time.wHour, detection.time.wMinute,
                              Printable(FieldText(record.threatName)));
    text += "           file    " + Printable(FieldText(record.infectedPath)) + '\n';
    if (record.secondPath[0] != 0)
        text += "           inside  " + Printable(FieldText(record.secondPath)) + '\n';
    text += "           action  " + ActionText(record.firstAction, record.firstResult);
    if (record.secondAction != AS_ACTION_NONE)
        text += ", " + ActionText(record.secondAction, record.secondResult);
    return text + '\n';
}

// False when nobody can see it any more.
bool Show(const std::string& text)
{
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

void Run()
{
    guide::PrepareTerminal();
    DetectionFeed feed("ardguide", InterruptEvent());
    if (!Show("[Ardentis] notifications of the scanner appear here\n"))
        return;
    while (!feed.Ended() && !guide::TerminalIsGone()) {
        Detection detection;
        if (feed.Next(detection, GetTickCount64() + kTerminalLook) && !Show(Notification(detection)))
            return;
        if (const unsigned lost = feed.TakeLost(); lost != 0 && !Show(Format("[Ardentis] and %u more\n", lost)))
            return;
    }
}

} // namespace

int main()
try {
    Run();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "ardguide: %s\n", error.what());
    return 1;
}
