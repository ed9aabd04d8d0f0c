// A Windows command line as a program of this host and its arguments.
#pragma once

#include "platform/win32.h"

#include <string>
#include <vector>

namespace vlt::posix::service
{

// Quotes and backslashes count as for the C runtime. An unquoted program path with blanks is the
// first prefix that is a file. ERROR_FILE_NOT_FOUND when there is none.
DWORD ResolveCommandLine(WStringView commandLine, std::vector<std::string>& arguments);

} // namespace vlt::posix::service
