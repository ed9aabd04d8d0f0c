// vlctl security-centre: what the command program was last told to report.
#include "platform/Unique.h"
#include "suite/ArdCmdCom/SecurityCentreFormat.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace vlt::ctl
{
namespace
{

std::optional<bool> Reported(LPCWSTR name)
{
    RegKey key;
    DWORD type = 0, value = 0, size = sizeof value;
    const LONG error =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, securitycentre::kKey, 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, key.Receive());
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND)
        FailWith(static_cast<DWORD>(error), Utf8(securitycentre::kKey));
    if (!key || RegQueryValueExW(key.Get(), name, nullptr, &type, reinterpret_cast<LPBYTE>(&value), &size) != 0 ||
        type != REG_DWORD)
        return std::nullopt;
    return value != 0;
}

void Show(Run& run)
{
    const std::pair<const char*, std::optional<bool>> states[] = {
        {"anti-virus", Reported(securitycentre::kAntiVirus)},
        {"anti-spyware", Reported(securitycentre::kAntiSpyware)},
    };
    nlohmann::ordered_json object;
    std::vector<std::vector<std::string>> rows;
    for (const auto& [name, state] : states) {
        object[name] = state ? nlohmann::ordered_json(*state) : nlohmann::ordered_json();
        rows.push_back({name, !state ? "not reported" : *state ? "on" : "off"});
        if (!state)
            run.exit = ExitNo;
    }
    Print(run.json ? object.dump() + '\n' : Table(rows));
}

} // namespace

void AddSecurityCentreCommand(CLI::App& app, Run& run)
{
    CLI::App* const command =
        app.add_subcommand("security-centre", "Show the protection that was last reported; 1 when any of it never was");
    command->add_flag("--json", run.json, "Print one JSON object");
    command->callback([&run] { Show(run); });
}

} // namespace vlt::ctl
