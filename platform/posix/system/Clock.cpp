#include "platform/posix/win32/system.h"

#include <ctime>

void GetLocalTime(SYSTEMTIME* time)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    time->wYear = static_cast<WORD>(local.tm_year + 1900);
    time->wMonth = static_cast<WORD>(local.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(local.tm_wday);
    time->wDay = static_cast<WORD>(local.tm_mday);
    time->wHour = static_cast<WORD>(local.tm_hour);
    time->wMinute = static_cast<WORD>(local.tm_min);
    time->wSecond = static_cast<WORD>(local.tm_sec < 60 ? local.tm_sec : 59); // no leap seconds in the subset
    time->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}

void GetSystemTimeAsFileTime(FILETIME* time)
{
    // In units of 100 ns since 1601.
    constexpr ULONGLONG unixEpoch = 116444736000000000ULL;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const ULONGLONG value =
        unixEpoch + static_cast<ULONGLONG>(now.tv_sec) * 10000000ULL + static_cast<ULONGLONG>(now.tv_nsec) / 100ULL;
    time->dwLowDateTime = static_cast<DWORD>(value);
    time->dwHighDateTime = static_cast<DWORD>(value >> 32);
}

ULONGLONG GetTickCount64()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000ULL + static_cast<ULONGLONG>(now.tv_nsec) / 1000000ULL;
}
