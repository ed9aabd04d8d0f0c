// A pattern library that answers from its environment: the newest pattern is TEST_LAST_PATTERN, none when
// that is not set; its version is TEST_VERSION, and asking for it gives TEST_RESULT.
#include "engine/KsapiAbi.h"

#include <cstdlib>
#include <string>

namespace
{

std::string Variable(const char* name)
{
    // The C library's own copy would not see what a test sets after it was loaded.
    const std::string text(name);
    WCHAR value[64] = {};
    const DWORD length = GetEnvironmentVariableW(WString(text.begin(), text.end()).c_str(), value, 64);
    std::string result;
    for (const WCHAR unit : WStringView(value, length))
        result += static_cast<char>(unit);
    return result;
}

} // namespace

#define KS_TEST_EXPORT extern "C" __attribute__((visibility("default")))

KS_TEST_EXPORT int WINAPI KSGetLastPattern(const char*, const char* stem, char* name)
{
    const std::string last = Variable("TEST_LAST_PATTERN");
    if (last.empty() || std::string("ptf$qrv") != stem)
        return 1;
    last.copy(name, 259);
    return 0;
}

KS_TEST_EXPORT int WINAPI KSGetPatternInternalVersion(const char* path, std::int32_t* version)
{
    if (!std::string(path).ends_with('\\' + Variable("TEST_LAST_PATTERN")))
        return 99;
    *version = std::atoi(Variable("TEST_VERSION").c_str());
    return std::atoi(Variable("TEST_RESULT").c_str());
}

KS_TEST_EXPORT int WINAPI KSGetLastPatternW(const WCHAR*, const WCHAR*, WCHAR*)
{
    return 1;
}

KS_TEST_EXPORT int WINAPI KSDeleteUnusedPattern(const char*, const char*, std::int32_t)
{
    return -1;
}

KS_TEST_EXPORT std::int32_t WINAPI KSGetDefaultExtListSize()
{
    return 0;
}

KS_TEST_EXPORT int WINAPI KSGetDefaultExtList(char*, std::int32_t)
{
    return 1;
}

KS_TEST_EXPORT int WINAPI KSInit(const char*)
{
    return 0;
}

KS_TEST_EXPORT int WINAPI KSGetVersion(KsVersion* version)
{
    *version = {9, 5, 0, 1200};
    return 0;
}
