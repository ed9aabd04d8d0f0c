// The child bodies of this program, and how a child is told which one it is.
#pragma once

#include "tests/support/Child.h"

namespace vlt::test
{

// program kChildSwitch body parent-process-id args...
inline constexpr char kChildSwitch[] = "--vlt-child";

// Null when there is none of that name.
ChildFunction FindChildBody(const std::string& name);

} // namespace vlt::test
