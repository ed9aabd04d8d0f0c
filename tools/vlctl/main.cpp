// vlctl, the operator's tool: the service, its settings, the registry they live in, the virus log, the
// quarantine store, the patterns, and what the service broadcasts and takes as requests.
#include "tools/vlctl/Command.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    using namespace vlt;
    using namespace vlt::ctl;
    Run run;
    CLI::App app("Operates the Veltrano Realtime Service.", "vlctl");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 no or not found, 2 failed, 64 usage, 69 no such service, 77 permission.");
    AddServiceCommands(app, run);
    AddSettingsCommands(app, run);
    AddRegistryCommands(app, run);
    AddLogCommand(app, run);
    AddWatchCommand(app, run);
    AddExcludeCommands(app);
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
        std::fprintf(stderr, "vlctl: %s\n", error.what());
        return error.Code();
    } catch (const suite::SystemFailure& error) {
        std::fprintf(stderr, "vlctl: %s\n", error.what());
        return ExitFor(error.Code());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vlctl: %s\n", error.what());
        return ExitFailed;
    }
}
