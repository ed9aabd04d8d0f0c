#include "suite/ardguide/Terminal.h"

#include "platform/win32.h"

void vlt::guide::PrepareTerminal()
{
    SetConsoleOutputCP(CP_UTF8);
}

// The closing of a console ends its programs.
bool vlt::guide::TerminalIsGone()
{
    return false;
}
