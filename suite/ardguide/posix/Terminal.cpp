#include "suite/ardguide/Terminal.h"

#include <poll.h>
#include <unistd.h>

void vlt::guide::PrepareTerminal() {}

bool vlt::guide::TerminalIsGone()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && (output.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}
