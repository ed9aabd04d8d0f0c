// What the suite's command program was last told to report to the security centre of the system.
#pragma once

#include "tools/vlctl/Answer.h"

namespace vlt::ctl
{

// {"antiVirus": "on", "antiSpyware": "off"}; "not reported" until it was once.
Json ReportedProtection();

} // namespace vlt::ctl
