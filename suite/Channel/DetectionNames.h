// The codes of a detection in words.
#pragma once

#include <cstdint>
#include <string>

namespace vlt::suite
{

// "deny done"; "-" when no action was taken. A code without a name is shown as its number.
std::string ActionText(std::uint32_t action, std::uint32_t result);

} // namespace vlt::suite
