// vlctl service: what the control manager knows and does.
#include "platform/Format.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Host.h"
#include "tools/vlctl/Supervise.h"
#include "tools/vlctl/Text.h"

#include <nlohmann/json.hpp>

#include <array>

namespace vlt::ctl
{
namespace
{

constexpr DWORD PollMilliseconds = 20;
constexpr DWORD RestartMilliseconds = 5000; // after a crash

struct Settings {
    std::string program;
    unsigned timeoutSeconds = 60;
    unsigned delaySeconds = 5;
};

ServiceHandle OpenManager(DWORD access)
{
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
    if (!manager) {
        const DWORD error = GetLastError();
        if (error == ERROR_ACCESS_DENIED)
            FailWith(error, "service manager");
        throw CommandError(ExitNoService, Format("service manager: %s (%u)", SystemText(error), error));
    }
    return manager;
}

ServiceHandle OpenInstalled(DWORD access)
{
    const ServiceHandle manager = OpenManager(SC_MANAGER_CONNECT);
    ServiceHandle service(OpenServiceW(manager.Get(), ServiceName, access));
    if (!service)
        FailWith(GetLastError(), Utf8(ServiceName));
    return service;
}

SERVICE_STATUS_PROCESS Query(const ServiceHandle& service)
{
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof status,
                              &needed))
        FailWith(GetLastError(), "query");
    return status;
}

const char* StateName(DWORD state)
{
    static constexpr std::array names{"unknown", "stopped",          "start pending", "stop pending",
                                      "running", "continue pending", "pause pending", "paused"};
    return state < names.size() ? names[state] : names[0];
}

// Waits until the state is `wanted` and returns the last status. A service that has stopped will not
// get anywhere else, so that ends the wait as well.
SERVICE_STATUS_PROCESS WaitFor(const ServiceHandle& service, DWORD wanted, unsigned timeoutSeconds)
{
    const ULONGLONG deadline = GetTickCount64() + timeoutSeconds * 1000ull;
    for (;;) {
        const SERVICE_STATUS_PROCESS status = Query(service);
        if (status.dwCurrentState == wanted || status.dwCurrentState == SERVICE_STOPPED)
            return status;
        if (GetTickCount64() >= deadline)
            throw CommandError(ExitFailed,
                               Format("still %s after %u seconds", StateName(status.dwCurrentState), timeoutSeconds));
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
        FailWith(ERROR_FILE_NOT_FOUND, Printable(program));
    const ServiceHandle manager = OpenManager(SC_MANAGER_CREATE_SERVICE);
    // The path is registered bare, as the service registers itself.
    const ServiceHandle service(CreateServiceW(manager.Get(), ServiceName, DisplayName, SERVICE_ALL_ACCESS,
                                               SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS,
                                               SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, program.c_str(), nullptr,
                                               nullptr, nullptr, nullptr, nullptr));
    if (!service)
        FailWith(GetLastError(), "install");
    Print("installed " + Printable(program) + '\n');
    if (!RestartAfterFailure(service.Get(), RestartMilliseconds))
        Print("this host does not start it again after a crash by itself: a supervisor has to, as "
              "\"vlctl service supervise\" does\n");
}

void Remove()
{
    const ServiceHandle service = OpenInstalled(DELETE);
    if (!DeleteService(service.Get()))
        FailWith(GetLastError(), "remove");
    Print("removed\n");
}

// Running, or else stopped again already.
SERVICE_STATUS_PROCESS StartAndWait(const Settings& settings)
{
    const ServiceHandle service = OpenInstalled(SERVICE_START | SERVICE_QUERY_STATUS);
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

void Stop(const Settings& settings)
{
    const ServiceHandle service = OpenInstalled(SERVICE_STOP | SERVICE_QUERY_STATUS);
    SERVICE_STATUS ignored{};
    if (!ControlService(service.Get(), SERVICE_CONTROL_STOP, &ignored)) {
        const DWORD error = GetLastError();
        // Refused while it is stopping already, which is what was asked for.
        const bool stopping =
            error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL && Query(service).dwCurrentState == SERVICE_STOP_PENDING;
        if (error != ERROR_SERVICE_NOT_ACTIVE && !stopping)
            FailWith(error, "stop");
    }
    const SERVICE_STATUS_PROCESS status = WaitFor(service, SERVICE_STOPPED, settings.timeoutSeconds);
    Print(Format("stopped, exit code %u\n", status.dwWin32ExitCode));
}

void Status(Run& run)
{
    const SERVICE_STATUS_PROCESS status = Query(OpenInstalled(SERVICE_QUERY_STATUS));
    if (status.dwCurrentState != SERVICE_RUNNING)
        run.exit = ExitNo;
    if (run.json) {
        const nlohmann::ordered_json out{
            {"service", Utf8(ServiceName)},       {"state", StateName(status.dwCurrentState)},
            {"exitCode", status.dwWin32ExitCode}, {"checkpoint", status.dwCheckPoint},
            {"waitHint", status.dwWaitHint},      {"controlsAccepted", status.dwControlsAccepted},
            {"processId", status.dwProcessId},    {"program", Utf8(InstalledProgram())}};
        Print(out.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n');
        return;
    }
    Print(Table({{"state", StateName(status.dwCurrentState)},
                 {"exit code", std::to_string(status.dwWin32ExitCode)},
                 {"process", std::to_string(status.dwProcessId)},
                 {"program", Printable(InstalledProgram())}}));
}

} // namespace

WString InstalledProgram()
{
    const ServiceHandle service = OpenInstalled(SERVICE_QUERY_CONFIG);
    DWORD needed = 0;
    QueryServiceConfigW(service.Get(), nullptr, 0, &needed);
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        FailWith(GetLastError(), "configuration");
    std::vector<ULONG_PTR> buffer(needed / sizeof(ULONG_PTR) + 1);
    auto* const config = reinterpret_cast<LPQUERY_SERVICE_CONFIGW>(buffer.data());
    if (!QueryServiceConfigW(service.Get(), config, needed, &needed))
        FailWith(GetLastError(), "configuration");
    return config->lpBinaryPathName ? WString(config->lpBinaryPathName) : WString();
}

void AddServiceCommands(CLI::App& app, Run& run)
{
    auto settings = std::make_shared<Settings>();
    CLI::App* const service = app.add_subcommand("service", "Install, remove, start, stop or query the service");
    service->require_subcommand(1);

    CLI::App* const install = service->add_subcommand("install", "Register the service with the control manager");
    install->add_option("--program", settings->program, "Program of the service (default: beside vlctl)");
    install->callback([settings] { Install(*settings); });

    service->add_subcommand("remove", "Delete the registration; a running service goes on")->callback(Remove);

    CLI::App* const start = service->add_subcommand("start", "Start and wait until it runs");
    start->callback([settings] { Start(*settings); });
    CLI::App* const stop = service->add_subcommand("stop", "Stop and wait until it has stopped");
    stop->callback([settings] { Stop(*settings); });
    CLI::App* const supervise = service->add_subcommand(
        "supervise", "Start, and start again whenever it ends other than by a stop; until it is stopped");
    supervise->add_option("--delay", settings->delaySeconds, "Seconds between an end and the next start")
        ->capture_default_str()
        ->check(CLI::Range(0u, 3600u));
    supervise->callback([settings] {
        const auto awaitStopped = [&] {
            return WaitFor(OpenInstalled(SERVICE_QUERY_STATUS), SERVICE_STOPPED, settings->timeoutSeconds);
        };
        Supervise({[&] { return StartAndWait(*settings); }, awaitStopped, settings->delaySeconds});
    });
    for (CLI::App* command : {start, stop, supervise})
        command->add_option("--timeout", settings->timeoutSeconds, "Longest wait in seconds")
            ->capture_default_str()
            ->check(CLI::Range(1u, 3600u));

    CLI::App* const status = service->add_subcommand("status", "State, exit code and process; 1 when not running");
    status->add_flag("--json", run.json, "Print JSON");
    status->callback([&run] { Status(run); });
}

} // namespace vlt::ctl
