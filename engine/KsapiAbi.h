// The binary interface of the pattern library, Ksapi64.dll. Narrow text is in the system code page;
// functions may be called from any thread and keep nothing of their arguments.
#pragma once

#include "platform/win32.h"

#include <cstdint>

// KSGetVersion fills four numbers: major, minor, one that is not used, build. 0 ok.
struct KsVersion {
    std::uint32_t major;
    std::uint32_t minor;
    std::uint32_t unused;
    std::uint32_t build;
};
static_assert(sizeof(KsVersion) == 16);
static_assert(offsetof(KsVersion, major) == 0 && offsetof(KsVersion, minor) == 4 && offsetof(KsVersion, unused) == 8 &&
              offsetof(KsVersion, build) == 12);

// The newest pattern file of a stem such as "ptf$qrv": by internal version, then by name. name holds
// 260 characters. 0 when one was found.
using KSGetLastPattern_t = int(WINAPI*)(const char* folder, const char* stem, char* name);
using KSGetLastPatternW_t = int(WINAPI*)(const WCHAR* folder, const WCHAR* stem, WCHAR* name);
// The number of files deleted, negative on error; the file of version `keep` stays.
using KSDeleteUnusedPattern_t = int(WINAPI*)(const char* folder, const char* stem, std::int32_t keep);
using KSGetDefaultExtListSize_t = std::int32_t(WINAPI*)();                                   // bytes with the NUL
using KSGetDefaultExtList_t = int(WINAPI*)(char* buffer, std::int32_t size);                 // 0 ok
using KSGetPatternInternalVersion_t = int(WINAPI*)(const char* path, std::int32_t* version); // 0 ok
using KSInit_t = int(WINAPI*)(const char* folder);                                           // 0 ok
using KSGetVersion_t = int(WINAPI*)(KsVersion* version);                                     // 0 ok
