// A library for the loader's tests. It counts what its entry is called for in the environment of the
// process, where the test reads it also after the library has gone.
#include "platform/win32.h"

#include <string>

#ifdef _WIN32
#define SAMPLE_EXPORT extern "C" __declspec(dllexport)
#else
#define SAMPLE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

SAMPLE_EXPORT int SampleAnswer()
{
    return SAMPLE_ANSWER;
}

SAMPLE_EXPORT BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    if (reason > 1) // threads come and go
        return TRUE;
    WCHAR seen[64] = {};
    const DWORD length = GetEnvironmentVariableW(TEXT("VLT_SAMPLE"), seen, 60);
    WString text(seen, length);
    text += !module ? TEXT('?') : reason == 1 ? TEXT('A') : TEXT('D');
    SetEnvironmentVariableW(TEXT("VLT_SAMPLE"), text.c_str());
    return SAMPLE_RESULT;
}
