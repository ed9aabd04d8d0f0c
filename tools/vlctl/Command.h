// What the commands of vlctl share: exit codes, failures and the way commands are added.
#pragma once

#include "suite/Channel/Text.h"
#include "tools/vlctl/CommandLine.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vlt::ctl
{

// Scripts depend on these numbers. From 64 on they are those of sysexits.
enum Exit : int {
    ExitDone = 0,       // done, or nothing found
    ExitNo = 1,         // the answer is no, or something was found: no such value, a problem, a difference
    ExitFailed = 2,     // the system refused; the message has its code
    ExitNotRunning = 3, // of `status` alone: the service does not run
    ExitUsage = 64,     // the command line is not understood
    ExitNoService = 69, // the service is not installed or does not listen, or its manager cannot be reached
    ExitNoPermission = 77,
};

// Ends the command with a message on standard error, and what to do about it. Without advice of its own
// it gets the one that fits its exit code.
class CommandError : public std::runtime_error
{
public:
    CommandError(Exit code, const std::string& message, std::string advice = {});
    Exit Code() const noexcept { return m_code; }
    const std::string& Advice() const noexcept { return m_advice; }

private:
    Exit m_code;
    std::string m_advice;
};

// The exit code for a system error code.
Exit ExitFor(DWORD systemError);

// Throws the CommandError that fits a system error code; the message is "what: text (code)".
[[noreturn]] void FailWith(DWORD systemError, const std::string& what, std::string advice = {});

using suite::SystemText;

// State of one run. Commands set `exit`; they throw for anything but ExitDone and a plain "no".
struct Run {
    bool json = false;
    Exit exit = ExitDone;
};

constexpr WCHAR ServiceName[] = TEXT("Vlntsrv");
constexpr WCHAR DisplayName[] = TEXT("Veltrano Realtime Service");

void AddStatusCommand(CLI::App& app, Run& run);
void AddDoctorCommand(CLI::App& app, Run& run);
void AddSelftestCommand(CLI::App& app, Run& run);
void AddServiceCommands(CLI::App& app, Run& run);
void AddRegistryCommands(CLI::App& app, Run& run);
void AddSettingsCommands(CLI::App& app, Run& run);
void AddExclusionCommands(CLI::App& app, Run& run);
void AddLogCommand(CLI::App& app, Run& run);
void AddWatchCommands(CLI::App& app, Run& run);
void AddProcessCommands(CLI::App& app);
void AddEventCommands(CLI::App& app);
void AddQuarantineCommands(CLI::App& app, Run& run);
void AddPatternCommands(CLI::App& app, Run& run);
void AddManualCommand(CLI::App& app);
void AddSecurityCentreCommand(CLI::App& app, Run& run);

// The path of the installed service's program, as it was registered but without quotes. Throws when it is
// not installed.
WString InstalledProgram();

// A path cut after its last backslash or slash; empty when it has neither.
WString FolderOf(const WString& path);

} // namespace vlt::ctl
