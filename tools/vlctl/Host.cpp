#include "tools/vlctl/Host.h"

#ifdef _WIN32
#include <cstdio>
#include <io.h>
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

void KeepNewFilesPrivate()
{
#ifndef _WIN32
    umask(077);
#endif
}

} // namespace vlt::ctl
