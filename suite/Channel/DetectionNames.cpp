#include "suite/Channel/DetectionNames.h"

#include "engine/ArdScanAbi.h"

#include <span>

namespace vlt::suite
{
namespace
{

constexpr const char* Actions[] = {"none", "pass", "quarantine", "clean", "delete", "rename", "move", "deny"};
constexpr const char* Results[] = {"not tried", "done", "failed"};
static_assert(std::size(Actions) == AS_ACTION_DENY + 1 && std::size(Results) == AS_RESULT_FAILED + 1);

std::string Name(std::span<const char* const> names, std::uint32_t code)
{
    return code < names.size() ? names[code] : std::to_string(code);
}

} // namespace

std::string ActionText(std::uint32_t action, std::uint32_t result)
{
    if (action == AS_ACTION_NONE)
        return "-";
    return Name(Actions, action) + ' ' + Name(Results, result);
}

} // namespace vlt::suite
