// vlctl event: the named events by which the suite's programs signal each other.
#include "platform/Format.h"
#include "suite/Channel/SharedObjects.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{

using namespace suite;

namespace
{

struct Settings {
    std::string name;
    bool local = false;
    bool create = false;
    DWORD milliseconds = INFINITE;
};

WString FullName(const Settings& settings)
{
    if (settings.local || settings.name.starts_with("Local\\"))
        return FromUtf8(settings.name);
    return GlobalName(settings.name);
}

[[noreturn]] void FailToOpen(DWORD error, const std::string& name)
{
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
        throw CommandError(ExitNo, name + ": no such event; start the program that listens for it, or use --create");
    case ERROR_INVALID_HANDLE:
        throw CommandError(ExitFailed, name + ": the name of something that is no event");
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
        throw CommandError(ExitUsage, name + ": a backslash may only end Global or Local at the start of a name");
    default:
        FailWith(error, name);
    }
}

KernelHandle OpenNamed(const Settings& settings, const WString& name, DWORD access)
{
    KernelHandle event(OpenEventW(access, FALSE, name.c_str()));
    if (event)
        return event;
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND || !settings.create)
        FailToOpen(error, Printable(name));
    return ShareEvent(name, true);
}

void Change(const Settings& settings, BOOL(WINAPI* operation)(HANDLE))
{
    const WString name = FullName(settings);
    const KernelHandle event = OpenNamed(settings, name, EVENT_MODIFY_STATE);
    if (!operation(event.Get()))
        FailWith(GetLastError(), Printable(name));
}

void Wait(const Settings& settings)
{
    const WString name = FullName(settings);
    const KernelHandle event = OpenNamed(settings, name, SYNCHRONIZE);
    const DWORD result = WaitForSingleObject(event.Get(), settings.milliseconds);
    if (result == WAIT_TIMEOUT)
        throw CommandError(ExitNo, Format("%s: not signalled within %u ms", Printable(name), settings.milliseconds));
    if (result != WAIT_OBJECT_0)
        FailWith(GetLastError(), Printable(name));
    Print(Printable(name) + ": signalled\n");
}

} // namespace

void AddEventCommands(CLI::App& app)
{
    CLI::App* const event = app.add_subcommand("event", "Signal a named event of the suite, or wait for one");
    event->require_subcommand(1);
    event->footer(
        "1 when there is no such event, or not within the time. A pulse or a wait without --create shows that "
        "somebody has the event, not that he was listening.");
    const auto add = [event](const char* name, const char* description) {
        auto settings = std::make_shared<Settings>();
        CLI::App* const command = event->add_subcommand(name, description);
        command
            ->add_option("NAME", settings->name, "Name; Global\\ is put before it unless it begins so or with Local\\")
            ->required()
            ->check([](const std::string& text) { return text.empty() ? "the name is empty" : std::string(); });
        command->add_flag("--local", settings->local, "Take the name as it is: in this session, when it has no prefix");
        command->add_flag("--create", settings->create,
                          "When there is none, make it: manual-reset, open to every account, gone with this command "
                          "unless another program has opened it");
        return std::pair(command, settings);
    };
    const auto addChange = [&add](const char* name, const char* description, BOOL(WINAPI * operation)(HANDLE)) {
        const auto [command, settings] = add(name, description);
        command->callback([kept = settings, operation] { Change(*kept, operation); });
    };
    addChange("set", "Signal it until it is reset", SetEvent);
    addChange("reset", "Signal it no more", ResetEvent);
    addChange("pulse", "Release who waits for it at this moment", PulseEvent);
    const auto [wait, settings] = add("wait", "Wait until it is signalled");
    wait->add_option("--timeout", settings->milliseconds, "Longest wait in milliseconds; no limit when not given")
        ->check(CLI::Range(0u, 0xFFFFFFFEu));
    wait->callback([kept = settings] { Wait(*kept); });
}

} // namespace vlt::ctl
