// vlctl service: what the control manager knows and does.
#include "platform/Format.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/EventSource.h"
#include "tools/vlctl/Host.h"
#include "tools/vlctl/ServiceManager.h"
#include "tools/vlctl/Supervise.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
namespace
{

constexpr DWORD PollMilliseconds = 20;
constexpr DWORD RestartMilliseconds = 5000; // after a crash

struct Settings {
    std::string program;
    std::uint32_t timeoutSeconds = 60;
    std::uint32_t delaySeconds = 5;
};

// Waits until the state is `wanted` and returns the last status. A service that has stopped will not
// get anywhere else, so that ends the wait as well.
SERVICE_STATUS_PROCESS WaitFor(const ServiceHandle& service, DWORD wanted, unsigned timeoutSeconds)
{
    const ULONGLONG deadline = GetTickCount64() + timeoutSeconds * 1000ull;
    for (;;) {
        const SERVICE_STATUS_PROCESS status = QueryService(service);
        if (status.dwCurrentState == wanted || status.dwCurrentState == SERVICE_STOPPED)
            return status;
        if (GetTickCount64() >= deadline)
            throw CommandError(
                ExitFailed,
                Format("still %s after %u seconds", ServiceStateName(status.dwCurrentState), timeoutSeconds),
                "wait longer with --timeout, or see vlctl service status and the log of the system");
        Sleep(PollMilliseconds);
    }
}

// Beside this program, with the same file extension.
WString DefaultProgram()
{
    WCHAR own[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, own, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        FailWith(GetLastError(), "own path");
    const WString path(own, length);
    const WString folder = FolderOf(path);
    const std::size_t dot = path.find('.', folder.size());
    return folder + ServiceName + (dot == WString::npos ? WString() : path.substr(dot));
}

void Install(const Settings& settings)
{
    WString program = DefaultProgram();
    if (!settings.program.empty()) {
        WCHAR full[MAX_PATH];
        const DWORD length = GetFullPathNameW(FromUtf8(settings.program).c_str(), MAX_PATH, full, nullptr);
        if (length == 0 || length >= MAX_PATH)
            FailWith(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE, settings.program);
        program.assign(full, length);
    }
    const DWORD attributes = GetFileAttributesW(program.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
        FailWith(ERROR_FILE_NOT_FOUND, Printable(program), "name the service's program with --program");
    const ServiceHandle manager = OpenServiceManager(SC_MANAGER_CREATE_SERVICE);
    // The path is registered bare, as the service registers itself.
    const ServiceHandle service(CreateServiceW(manager.Get(), ServiceName, DisplayName, SERVICE_ALL_ACCESS,
                                               SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS,
                                               SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, program.c_str(), nullptr,
                                               nullptr, nullptr, nullptr, nullptr));
    if (!service)
        FailWith(GetLastError(), "install",
                 GetLastError() == ERROR_SERVICE_EXISTS ? "vlctl service remove takes the old registration away" : "");
    RegisterEventSource(FolderOf(program));
    Print("installed " + Printable(program) + '\n');
    if (!RestartAfterFailure(service.Get(), RestartMilliseconds))
        Print("this host does not start it again after a crash by itself: a supervisor has to, as "
              "\"vlctl service supervise\" does\n");
}

void Remove()
{
    const ServiceHandle service = OpenInstalledService(DELETE);
    if (!DeleteService(service.Get()))
        FailWith(GetLastError(), "remove");
    RemoveEventSource();
    Print("removed\n");
}

// Running, or else stopped again already.
SERVICE_STATUS_PROCESS StartAndWait(const Settings& settings)
{
    const ServiceHandle service = OpenInstalledService(SERVICE_START | SERVICE_QUERY_STATUS);
    if (!StartServiceW(service.Get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING)
        FailWith(GetLastError(), "start");
    return WaitFor(service, SERVICE_RUNNING, settings.timeoutSeconds);
}

void Start(const Settings& settings)
{
    const SERVICE_STATUS_PROCESS status = StartAndWait(settings);
    if (status.dwCurrentState != SERVICE_RUNNING)
        throw CommandError(ExitFailed, Format("stopped while starting, exit code %u", status.dwWin32ExitCode));
    Print(Format("running, process %u\n", status.dwProcessId));
}

void KeepRunning(const Settings& settings)
{
    const auto awaitStopped = [&] {
        return WaitFor(OpenInstalledService(SERVICE_QUERY_STATUS), SERVICE_STOPPED, settings.timeoutSeconds);
    };
    Supervise({[&] { return StartAndWait(settings); }, awaitStopped, settings.delaySeconds});
}

void Stop(const Settings& settings)
{
    const ServiceHandle service = OpenInstalledService(SERVICE_STOP | SERVICE_QUERY_STATUS);
    SERVICE_STATUS ignored{};
    if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &ignored)) {
        const DWORD error = GetLastError();
        // Refused while it is stopping already, which is what was asked for.
        const bool stopping =
            error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && QueryService(service).dwCurrentState == SERVICE_STOP_PENDING;
        if (error != ERROR_SERVICE_NOT_ACTIVE && !stopping)
            FailWith(error, "stop");
    }
    const SERVICE_STATUS_PROCESS status = WaitFor(service, SERVICE_STOPPED, settings.timeoutSeconds);
    Print(Format("stopped, exit code %u\n", status.dwWin32ExitCode));
}

void Status(Run& run)
{
    const SERVICE_STATUS_PROCESS status = QueryService(OpenInstalledService(SERVICE_QUERY_STATUS));
    if (status.dwCurrentState != SERVICE_RUNNING)
        run.exit = ExitNo;
    PrintAnswer(run, {{"service", Utf8(ServiceName)},
                      {"state", ServiceStateName(status.dwCurrentState)},
                      {"exitCode", status.dwWin32ExitCode},
                      {"checkpoint", status.dwCheckPoint},
                      {"waitHint", status.dwWaitHint},
                      {"controlsAccepted", status.dwControlsAccepted},
                      {"processId", status.dwProcessId},
                      {"program", Utf8(InstalledProgram())}});
}

} // namespace

void AddServiceCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word noun = Word(app).Noun("service", "Install, remove, start, stop or query the service");
    noun.Verb("install", "Register the service with the control manager", [kept] { Install(*kept); })
        .Text("--program", kept->program, "Program of the service (default: beside vlctl)");
    noun.Verb("remove", "Delete the registration; a running service goes on", Remove);
    const Word start = noun.Verb("start", "Start and wait until it runs", [kept] { Start(*kept); });
    const Word stop = noun.Verb("stop", "Stop and wait until it has stopped", [kept] { Stop(*kept); });
    const Word supervise =
        noun.Verb("supervise", "Start, and start again whenever it ends other than by a stop; until it is stopped",
                  [kept] { KeepRunning(*kept); });
    supervise.Number("--delay", kept->delaySeconds, 0, 3600, "Seconds between an end and the next start");
    for (const Word& verb : {start, stop, supervise})
        verb.Number("--timeout", kept->timeoutSeconds, 1, 3600, "Longest wait in seconds");
    noun.Verb("status", "State, exit code and process; 1 when not running", [&run] { Status(run); }).Json(run);
}

} // namespace vlt::ctl
