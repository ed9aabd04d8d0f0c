// vlctl process: whether the files that a process opens are scanned.
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
    std::uint32_t timeoutSeconds = 10;
};

void Ask(const Settings& settings, bool add)
{
    const PidExceptionRequest request{settings.processId, add ? 1 : 0};
    SendRequest(kPidExceptionChannel, {reinterpret_cast<const BYTE*>(&request), sizeof request},
                settings.timeoutSeconds);
    Print(Format("process %u: %s\n", settings.processId, add ? "excluded" : "included"));
}

} // namespace

void AddProcessCommands(CLI::App& app)
{
    const Word noun = Word(app).Noun("process", "Whether the files that a process opens are scanned");
    const auto add = [&noun](const char* name, const char* meaning, bool exclude) {
        const auto kept = std::make_shared<Settings>();
        const Word verb = noun.Verb(name, meaning, [kept, exclude] { Ask(*kept, exclude); });
        verb.Number("PID", kept->processId, 1, 0xFFFFFFFFu, "Number of the process");
        verb.Number("--timeout", kept->timeoutSeconds, 1, 3600, "Longest wait in seconds");
    };
    add("exclude", "Do not scan what it opens, until it ends; 69 when the service does not listen", true);
    add("include", "Scan again what it opens; 69 when the service does not listen", false);
}

} // namespace vlt::ctl
