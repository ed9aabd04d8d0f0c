// Where the trace library writes its own log.
#pragma once

#include "platform/win32.h"

// Whether the trace library's log file (log_path of section debug in ardentis.ini) is the default one,
// Log\ard.log in the program folder; case is ignored. Then *path, when path is not null, is the
// configured path in short form. A file that does not exist has no short form and so is never the
// default one. Everything but true is traced.
bool IsDefaultDebugLogPath(WString* path);
