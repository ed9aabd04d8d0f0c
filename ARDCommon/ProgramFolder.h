// The two folders that the product's files are named from. They are the same in an installation.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// The folder of the running program, ending in a backslash: ardentis.ini, ArdScan.dll, the logs and
// the Quarantine folder. Empty when the program's path is not known or has 260 characters or more.
WString ProgramFolder();

// The same in short form. The long text when there is no short form.
WString ShortProgramFolder();

// The folder that the suite was installed to (value "Application Path"), ending in a backslash:
// ArdCmdCom.exe, Ksapi64.dll and the pattern files. Empty when the value is missing.
WString ApplicationFolder();

// ardentis.ini: version records (section Info) and the trace's switches (section debug).
WString SettingsFile();

// The short form of an existing path, of at most 258 characters. False with the last error set when
// there is none; `path` is then unchanged.
bool ShortenPath(WString& path);

} // namespace vlt
