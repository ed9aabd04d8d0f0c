// The requester's side of a request channel (see IpcFormat.h).
#pragma once

#include "tools/vlctl/Command.h"

#include <span>

namespace vlt::ctl
{

// Hands the request over and waits until it is acknowledged, which says nothing of its outcome. Waits
// its turn while another requester is at it. Throws CommandError: ExitNoService when nobody listens on the
// channel, ExitFailed when the time is up or the user has interrupted it.
void SendRequest(const char* channel, std::span<const BYTE> request, unsigned timeoutSeconds);

} // namespace vlt::ctl
