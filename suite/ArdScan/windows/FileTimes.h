// Times and positioned reads of the Windows host.
#pragma once

#include "platform/win32.h"
#include "suite/ArdScan/FileFacts.h"

#include <algorithm>
#include <cstdint>
#include <span>

namespace vlt::scan
{

constexpr std::int64_t TicksPerSecond = 10'000'000;
constexpr std::int64_t EpochSeconds = 11'644'473'600; // from 1601 to 1970

inline FileTime FromFileTime(const FILETIME& time)
{
    const auto ticks = static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
    return {ticks / TicksPerSecond - EpochSeconds, static_cast<std::uint32_t>(ticks % TicksPerSecond * 100)};
}

// 0, which leaves a file's time as it is, for a time that is not known or that a file cannot have.
inline LARGE_INTEGER ToTicks(const FileTime& time)
{
    LARGE_INTEGER ticks{};
    constexpr std::int64_t Last = INT64_MAX / TicksPerSecond - EpochSeconds - 1;
    if (time != FileTime{} && time.seconds > -EpochSeconds && time.seconds < Last)
        ticks.QuadPart = (time.seconds + EpochSeconds) * TicksPerSecond + time.nanoseconds / 100;
    return ticks;
}

inline std::ptrdiff_t ReadFileAt(HANDLE file, std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(buffer.size(), 1u << 20));
    if (ReadFile(file, buffer.data(), size, &count, &place))
        return static_cast<std::ptrdiff_t>(count);
    return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
}

} // namespace vlt::scan
