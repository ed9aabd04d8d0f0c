#include "suite/ardguide/Terminal.h"

// The closing of a console ends its programs.
bool vlt::guide::TerminalIsGone()
{
    return false;
}
