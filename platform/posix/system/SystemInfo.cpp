// What the system says of itself: a 64-bit Windows of the NT family.
#include "platform/posix/win32/kernel.h"
#include "platform/posix/win32/system.h"

#include <unistd.h>

BOOL GetVersionExW(OSVERSIONINFOW* version)
{
    if (!version || version->dwOSVersionInfoSize < sizeof *version) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const DWORD size = version->dwOSVersionInfoSize;
    *version = {};
    version->dwOSVersionInfoSize = size;
    version->dwMajorVersion = 10;
    version->dwBuildNumber = 19045;
    version->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return TRUE;
}

void GetNativeSystemInfo(SYSTEM_INFO* information)
{
    *information = {};
    information->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    information->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    information->lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(0x10000);
    information->lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(0x7FFFFFFEFFFF);
    information->dwNumberOfProcessors = static_cast<DWORD>(sysconf(_SC_NPROCESSORS_ONLN));
    information->dwActiveProcessorMask = information->dwNumberOfProcessors >= 64
                                             ? ~DWORD_PTR{0}
                                             : (DWORD_PTR{1} << information->dwNumberOfProcessors) - 1;
    information->dwProcessorType = 8664;
    information->dwAllocationGranularity = 0x10000;
}

BOOL IsWow64Process(HANDLE process, LPBOOL wow64)
{
    if (!process || !wow64) {
        SetLastError(process ? ERROR_INVALID_PARAMETER : ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *wow64 = FALSE;
    return TRUE;
}
