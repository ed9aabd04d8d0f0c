// The codes of a detection in words.
#pragma once

#include <cstdint>
#include <string>

namespace vlt::ctl
{

// "deny done"; "-" when no action was taken. A code without a name is shown as its number.
std::string ActionText(std::uint32_t action, std::uint32_t result);

} // namespace vlt::ctl
