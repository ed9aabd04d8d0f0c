// vlctl exclude, vlctl include: whether the files that a process opens are scanned.
#include "ARDCommon/IpcFormat.h"
#include "platform/Format.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/IpcRequest.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::uint32_t processId = 0;
    unsigned timeoutSeconds = 10;
};

void Ask(const Settings& settings, bool add)
{
    const PidExceptionRequest request{settings.processId, add ? 1 : 0};
    SendRequest(kPidExceptionChannel, {reinterpret_cast<const BYTE*>(&request), sizeof request},
                settings.timeoutSeconds);
    Print(Format("%s process %u: acknowledged\n", add ? "exclude" : "include", settings.processId));
}

} // namespace

void AddExcludeCommands(CLI::App& app)
{
    const auto add = [&app](const char* name, const char* description, bool exclude) {
        auto settings = std::make_shared<Settings>();
        CLI::App* const command = app.add_subcommand(name, description);
        command->add_option("PID", settings->processId, "Number of the process")
            ->required()
            ->check(CLI::Range(1u, 0xFFFFFFFFu));
        command->add_option("--timeout", settings->timeoutSeconds, "Longest wait in seconds")
            ->capture_default_str()
            ->check(CLI::Range(1u, 3600u));
        command->callback([settings, exclude] { Ask(*settings, exclude); });
    };
    add("exclude", "Do not scan what a process opens; 1 when the service is not running", true);
    add("include", "Scan again what a process opens; 1 when the service is not running", false);
}

} // namespace vlt::ctl
