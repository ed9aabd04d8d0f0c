// The binary interface of the trace library, vldbg64.dll: five C entry points, found by name. Shared
// by the service, the trace sink and the tests.
//
// Text is in the system code page and lives only for the call. Every entry point may be called from
// any thread, several at once. The message is the only argument of the format, which is always "%s".
#pragma once

#include "platform/win32.h"

extern "C" {

// settingsFile: full path of the ini file; hotSwitch: whether recording is on from the start.
using InitDebug_t = void(__cdecl*)(const char* settingsFile, BOOL hotSwitch);
// extended is 1: trace calls of this component come through TraceExA.
using InitDebugEx_t = void(__cdecl*)(const char* settingsFile, BOOL hotSwitch, const char* moduleName, int extended);

// level: 20 errors, 40 progress, 50 detail.
using TraceA_t = void(__cdecl*)(const char* sourceFile, int line, int level, const char* format, ...);
using TraceExA_t = void(__cdecl*)(const char* sourceFile, int line, int level, const char* moduleName, int extended,
                                  const char* format, ...);

// A block of raw bytes.
using DumpA_t = void(__cdecl*)(const char* sourceFile, int line, int level, const void* data, DWORD size);
}
