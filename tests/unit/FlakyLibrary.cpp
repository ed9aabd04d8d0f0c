// A library whose initialisation fails as often as the environment variable FLAKY_FAILURES says. When
// FLAKY_FILE names a file, the last failure takes that file away.
#include "platform/Text.h"

namespace
{

WString Variable(const WCHAR* name)
{
    WCHAR text[512] = {};
    GetEnvironmentVariableW(name, text, 512);
    return text;
}

} // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    constexpr DWORD attach = 1;
    const WString failures = Variable(TEXT("FLAKY_FAILURES"));
    if (reason != attach || failures.empty())
        return TRUE;
    const WString rest = failures.substr(1); // one character for each failure
    SetEnvironmentVariableW(TEXT("FLAKY_FAILURES"), rest.empty() ? nullptr : rest.c_str());
    const WString file = Variable(TEXT("FLAKY_FILE"));
    if (rest.empty() && !file.empty())
        MoveFileW(file.c_str(), (file + TEXT(".gone")).c_str());
    return FALSE;
}

// An entry point of the scan library, for the classes that look for it.
__attribute__((visibility("default"))) int ASGetPatternInformation()
{
    return 1;
}
}
