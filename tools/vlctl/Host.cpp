#include "tools/vlctl/Host.h"

#include <cstdlib>
#include <string_view>

#ifdef _WIN32
#include <cstdio>
#include <io.h>
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace vlt::ctl
{

bool ErrorsAreSeen()
{
#ifdef _WIN32
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) == 1;
#endif
}

bool OutputTakesColours()
{
    const char* const unwanted = std::getenv("NO_COLOR");
    if (unwanted && *unwanted)
        return false;
#ifdef _WIN32
    DWORD mode = 0;
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    return GetConsoleMode(output, &mode) && SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
#else
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && terminal && std::string_view(terminal) != "dumb";
#endif
}

void KeepNewFilesPrivate()
{
#ifndef _WIN32
    umask(077);
#endif
}

bool RestartAfterFailure([[maybe_unused]] SC_HANDLE service, [[maybe_unused]] DWORD milliseconds)
{
#ifdef _WIN32
    // The rollback counts on the third start, and a service that then goes on crashing is not given up.
    SC_ACTION action{SC_ACTION_RESTART, milliseconds};
    SERVICE_FAILURE_ACTIONSW actions{};
    actions.dwResetPeriod = 24 * 60 * 60; // seconds
    actions.cActions = 1;                 // the last one is repeated
    actions.lpsaActions = &action;
    return ChangeServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions) != FALSE;
#else
    return false;
#endif
}

} // namespace vlt::ctl
