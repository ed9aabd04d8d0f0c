// The suite's proxy, from the command program's side.
#pragma once

#include "suite/VlProxy/VlProxyFormat.h"

#include <optional>

namespace vlt::cmd
{

// What the running proxy says of itself. None when there is none: also when one was killed and its section
// lives on in another program, or its number belongs to another program now.
std::optional<proxy::VlpxInformation> FindProxy();

} // namespace vlt::cmd
