// Time.
#include "tests/platform/Fails.h"

#include <ctime>

TEST(ClockTest, LocalTimeIsThatOfTheStandardLibrary)
{
    const std::time_t before = std::time(nullptr);
    SYSTEMTIME local{};
    GetLocalTime(&local);
    const std::time_t after = std::time(nullptr);
    std::tm fields{};
    fields.tm_year = local.wYear - 1900;
    fields.tm_mon = local.wMonth - 1;
    fields.tm_mday = local.wDay;
    fields.tm_hour = local.wHour;
    fields.tm_min = local.wMinute;
    fields.tm_sec = local.wSecond;
    fields.tm_isdst = -1;
    const std::time_t told = std::mktime(&fields);
    EXPECT_LE(before, told);
    EXPECT_LE(told, after);
    EXPECT_EQ(local.wDayOfWeek, fields.tm_wday);
    EXPECT_LT(local.wMilliseconds, 1000);
}

TEST(ClockTest, FileTimeCountsFrom1601)
{
    constexpr std::uint64_t UnixEpoch = 116444736000000000; // in units of 100 ns
    const std::time_t before = std::time(nullptr);
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    const auto seconds = static_cast<std::time_t>((ticks - UnixEpoch) / 10000000);
    EXPECT_LE(before, seconds);
    EXPECT_LE(seconds, std::time(nullptr));

    FILETIME localTime{};
    SYSTEMTIME local{};
    SYSTEMTIME parts{};
    ASSERT_TRUE(FileTimeToLocalFileTime(&time, &localTime) && FileTimeToSystemTime(&localTime, &parts));
    GetLocalTime(&local);
    EXPECT_LE((local.wHour * 60 + local.wMinute - parts.wHour * 60 - parts.wMinute + 1440) % 1440, 1);
    const FILETIME leapDay{0x6F39B000, 0x01BF82E0}; // 2000-02-29 18:11:44
    ASSERT_TRUE(FileTimeToSystemTime(&leapDay, &parts));
    EXPECT_EQ(parts.wYear * 10000 + parts.wMonth * 100 + parts.wDay, 20000229);
    EXPECT_EQ(parts.wDayOfWeek, 2);
    const FILETIME never{0xFFFFFFFF, 0xFFFFFFFF};
    EXPECT_FALSE(FileTimeToSystemTime(&never, &parts));
}
