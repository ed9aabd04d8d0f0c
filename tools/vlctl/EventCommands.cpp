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
    std::uint32_t milliseconds = INFINITE;
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
        throw CommandError(ExitNo, name + ": no such event", "start the program that listens for it, or use --create");
    case ERROR_INVALID_HANDLE:
        throw CommandError(ExitFailed, name + ": the name of something that is no event", "use another name");
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

template <BOOL(WINAPI* Operation)(HANDLE)>
void Change(const Settings& settings)
{
    const WString name = FullName(settings);
    const KernelHandle event = OpenNamed(settings, name, EVENT_MODIFY_STATE);
    if (!Operation(event.Get()))
        FailWith(GetLastError(), Printable(name));
}

void Wait(const Settings& settings)
{
    const WString name = FullName(settings);
    const KernelHandle event = OpenNamed(settings, name, SYNCHRONIZE);
    const DWORD result = WaitForSingleObject(event.Get(), settings.milliseconds);
    if (result == WAIT_TIMEOUT)
        throw CommandError(ExitNo, Format("%s: not signalled within %u ms", Printable(name), settings.milliseconds),
                           "wait longer with --timeout");
    if (result != WAIT_OBJECT_0)
        FailWith(GetLastError(), Printable(name));
    Print(Printable(name) + ": signalled\n");
}

} // namespace

void AddEventCommands(CLI::App& app)
{
    const Word noun = Word(app).Noun("event", "Signal a named event of the suite, or wait for one");
    noun.Footer("1 when there is no such event, or not within the time. A pulse or a wait without --create shows that "
                "somebody has the event, not that he was listening.");
    const auto add = [&noun](const char* name, const char* meaning, void (*action)(const Settings&)) {
        const auto kept = std::make_shared<Settings>();
        const Word verb = noun.Verb(name, meaning, [kept, action] { action(*kept); });
        verb.CheckedText("NAME", kept->name, "Name; Global\\ is put before it unless it begins so or with Local\\",
                         [](const std::string& text) { return text.empty() ? "the name is empty" : std::string(); });
        verb.Flag("--local", kept->local, "Take the name as it is: in this session, when it has no prefix");
        verb.Flag("--create", kept->create,
                  "When there is none, make it: manual-reset, open to every account, gone with this command unless "
                  "another program has opened it");
        return std::pair(verb, kept);
    };
    add("set", "Signal it until it is reset", Change<SetEvent>);
    add("reset", "Signal it no more", Change<ResetEvent>);
    add("pulse", "Release who waits for it at this moment", Change<PulseEvent>);
    const auto [wait, kept] = add("wait", "Wait until it is signalled", Wait);
    wait.Number("--timeout", kept->milliseconds, 0, 0xFFFFFFFEu,
                "Longest wait in milliseconds; no limit when not given");
}

} // namespace vlt::ctl
