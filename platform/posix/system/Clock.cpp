#include "platform/posix/win32/system.h"

#include <ctime>

namespace
{

// A file time counts 100 ns since 1601.
constexpr ULONGLONG UnixEpoch = 116444736000000000ULL;
constexpr ULONGLONG TicksPerSecond = 10000000ULL;

void Fill(SYSTEMTIME& time, const tm& parts, WORD milliseconds)
{
    time.wYear = static_cast<WORD>(parts.tm_year + 1900);
    time.wMonth = static_cast<WORD>(parts.tm_mon + 1);
    time.wDayOfWeek = static_cast<WORD>(parts.tm_wday);
    time.wDay = static_cast<WORD>(parts.tm_mday);
    time.wHour = static_cast<WORD>(parts.tm_hour);
    time.wMinute = static_cast<WORD>(parts.tm_min);
    time.wSecond = static_cast<WORD>(parts.tm_sec < 60 ? parts.tm_sec : 59); // no leap seconds in the subset
    time.wMilliseconds = milliseconds;
}

ULONGLONG TicksOf(const FILETIME& time)
{
    return (ULONGLONG{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

FILETIME FileTimeOf(ULONGLONG ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

BOOL CheckFileTime(ULONGLONG ticks)
{
    if ((ticks >> 63) == 0)
        return TRUE;
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

} // namespace

void GetLocalTime(SYSTEMTIME* time)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    Fill(*time, local, static_cast<WORD>(now.tv_nsec / 1000000));
}

void GetSystemTimeAsFileTime(FILETIME* time)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = FileTimeOf(UnixEpoch + static_cast<ULONGLONG>(now.tv_sec) * TicksPerSecond +
                       static_cast<ULONGLONG>(now.tv_nsec) / 100ULL);
}

// By the offset that holds now, whatever held at that time.
BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local)
{
    const time_t now = std::time(nullptr);
    tm parts{};
    localtime_r(&now, &parts);
    const auto offset = static_cast<LONGLONG>(parts.tm_gmtoff) * static_cast<LONGLONG>(TicksPerSecond);
    const ULONGLONG ticks = TicksOf(*utc) + static_cast<ULONGLONG>(offset);
    if (!CheckFileTime(TicksOf(*utc)) || !CheckFileTime(ticks))
        return FALSE;
    *local = FileTimeOf(ticks);
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* time)
{
    const ULONGLONG ticks = TicksOf(*fileTime);
    if (!CheckFileTime(ticks))
        return FALSE;
    const time_t seconds =
        static_cast<time_t>(ticks / TicksPerSecond) - static_cast<time_t>(UnixEpoch / TicksPerSecond);
    tm parts{};
    gmtime_r(&seconds, &parts);
    Fill(*time, parts, static_cast<WORD>(ticks % TicksPerSecond / 10000));
    return TRUE;
}

ULONGLONG GetTickCount64()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000ULL + static_cast<ULONGLONG>(now.tv_nsec) / 1000000ULL;
}
