// vlctl security-centre: what the command program was last told to report.
#include "suite/ArdCmdCom/SecurityCentreFormat.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/SecurityCentre.h"

namespace vlt::ctl
{
namespace
{

constexpr const char* kNotReported = "not reported";

const char* Reported(const WCHAR* name)
{
    const auto value = MachineNumber(securitycentre::kKey, name);
    return !value ? kNotReported : *value != 0 ? "on" : "off";
}

void Show(Run& run)
{
    const Json report = ReportedProtection();
    for (const Json& state : report)
        if (state == kNotReported)
            run.exit = ExitNo;
    PrintAnswer(run, report);
}

} // namespace

Json ReportedProtection()
{
    return {{"antiVirus", Reported(securitycentre::kAntiVirus)},
            {"antiSpyware", Reported(securitycentre::kAntiSpyware)}};
}

void AddSecurityCentreCommand(CLI::App& app, Run& run)
{
    Word(app)
        .Verb("security-centre", "Show the protection that was last reported; 1 when any of it never was",
              [&run] { Show(run); })
        .Json(run);
}

} // namespace vlt::ctl
