// Ksapi64.dll as the service sees it: each call recorded, answers from recording.ini.
#include "engine/KsapiAbi.h"
#include "tests/service/recording/Recorder.h"

#include <cstring>

namespace
{

using vlt::record::Fields;
using vlt::record::Number;

int Record(const char* name, Fields arguments = {})
{
    vlt::record::Write("Ksapi64", name, arguments);
    return Number(name, "result", 0);
}

std::uint32_t VersionPart(const char* key, std::int32_t fallback)
{
    return static_cast<std::uint32_t>(Number("KSGetVersion", key, fallback));
}

} // namespace

extern "C" {

int WINAPI KSGetLastPattern(const char* folder, const char* stem, char* name)
{
    std::strcpy(name, "ptf$qrv.567");
    return Record("KSGetLastPattern", {{"folder", folder}, {"stem", stem}});
}

int WINAPI KSGetLastPatternW(const WCHAR* folder, const WCHAR* stem, WCHAR*)
{
    return Record("KSGetLastPatternW", {{"folder", folder}, {"stem", stem}});
}

int WINAPI KSDeleteUnusedPattern(const char* folder, const char* stem, std::int32_t keep)
{
    return Record("KSDeleteUnusedPattern", {{"folder", folder}, {"stem", stem}, {"keep", keep}});
}

std::int32_t WINAPI KSGetDefaultExtListSize()
{
    return Record("KSGetDefaultExtListSize");
}

int WINAPI KSGetDefaultExtList(char*, std::int32_t size)
{
    return Record("KSGetDefaultExtList", {{"size", size}});
}

int WINAPI KSGetPatternInternalVersion(const char* path, std::int32_t* version)
{
    *version = Number("KSGetPatternInternalVersion", "version", 56700);
    return Record("KSGetPatternInternalVersion", {{"path", path}});
}

int WINAPI KSInit(const char* folder)
{
    return Record("KSInit", {{"folder", folder}});
}

int WINAPI KSGetVersion(KsVersion* version)
{
    const bool zeroed = version->major == 0 && version->minor == 0 && version->unused == 0 && version->build == 0;
    *version = {VersionPart("major", 9), VersionPart("minor", 52), 0, VersionPart("build", 1200)};
    return Record("KSGetVersion", {{"zeroed", zeroed}});
}

} // extern "C"
