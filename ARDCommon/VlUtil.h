// Small helpers around processes, files and security that several places need.
#pragma once

#include "platform/Unique.h"
#include "platform/win32.h"

namespace VlUtil
{

// Starts the command line and waits, without limit, for the program to end. The path in it is not
// quoted; when it holds blanks the system tries each prefix that ends before one. True when the
// program was started; its exit code is not looked at. Sets the last error.
bool SyncExecuteProcess(LPCWSTR commandLine);
// The same without the wait. On failure the handle is left alone.
bool StartProcess(LPCWSTR commandLine, vlt::KernelHandle& process);

// The version resource of a program or library as "major.minor.release.build"; empty when it has none.
WString GetModuleVersion(LPCWSTR file);

// A security descriptor that gives everyone access. Empty, with the last error set, on failure.
vlt::LocalMem CreateNullDaclDescriptor();

} // namespace VlUtil
