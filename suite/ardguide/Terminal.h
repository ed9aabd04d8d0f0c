// The terminal on which notifications appear: standard output.
#pragma once

namespace vlt::guide
{

// Lets it take UTF-8.
void PrepareTerminal();

// Whether it was hung up, as at the end of a login. Programs that the service starts belong to no terminal
// and are told of that by nobody.
bool TerminalIsGone();

} // namespace vlt::guide
