// vlctl, the operator's tool: the service, its settings, the registry they live in, the virus log, the
// quarantine store, the patterns, and what the service broadcasts and takes as requests.
#include "tools/vlctl/Command.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace
{

int Complain(const vlt::ctl::CommandError& error)
{
    std::fprintf(stderr, "vlctl: %s\n", error.what());
    if (!error.Advice().empty())
        std::fprintf(stderr, "vlctl: %s\n", error.Advice().c_str());
    return error.Code();
}

// A word that is no command is taken for a missing one.
std::string WhatIsWrong(const CLI::App* app, const CLI::Error& error)
{
    const std::string usual = CLI::FailureMessage::simple(app, error);
    const std::vector<std::string> unknown = app->remaining(true);
    if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr || unknown.empty())
        return usual;
    return "There is no command \"" + unknown.front() + "\"." + usual.substr(usual.find('\n'));
}

} // namespace

int main(int argc, char** argv)
{
    using namespace vlt;
    using namespace vlt::ctl;
    Run run;
    CLI::App app("Operates the Veltrano Realtime Service.", "vlctl");
    app.require_subcommand(1);
    app.failure_message(WhatIsWrong);
    app.footer("Exit codes: 0 done or clean, 1 found something or no, 2 failed, 64 usage, 69 service not reachable, "
               "77 permission; of status: 0 protected, 1 degraded, 3 not running.");
    AddStatusCommand(app, run);
    AddDoctorCommand(app, run);
    AddSelftestCommand(app, run);
    AddServiceCommands(app, run);
    AddSettingsCommands(app, run);
    AddExclusionCommands(app, run);
    AddRegistryCommands(app, run);
    AddLogCommand(app, run);
    AddWatchCommands(app, run);
    AddProcessCommands(app);
    AddEventCommands(app);
    AddQuarantineCommands(app, run);
    AddPatternCommands(app, run);
    AddManualCommand(app);
    AddSecurityCentreCommand(app, run);
    try {
        app.parse(argc, argv);
        return run.exit;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitDone : ExitUsage;
    } catch (const CommandError& error) {
        return Complain(error);
    } catch (const suite::SystemFailure& error) {
        return Complain(CommandError(ExitFor(error.Code()), error.what()));
    } catch (const std::exception& error) {
        return Complain(CommandError(ExitFailed, error.what()));
    }
}
