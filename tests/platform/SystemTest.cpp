// Memory, messages, time, the system's description of itself, accounts and the environment.
#include "platform/Unique.h"
#include "tests/platform/Fails.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>
#include <vector>

TEST(MemoryTest, ZeroedBlocksAreZeroAndWritable)
{
    auto* const local = static_cast<BYTE*>(LocalAlloc(LPTR, 4096));
    ASSERT_NE(local, nullptr);
    for (int i = 0; i < 4096; ++i)
        ASSERT_EQ(local[i], 0) << i;
    local[4095] = 1;
    EXPECT_EQ(LocalFree(local), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);

    // A movable block keeps its bytes between locks.
    const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 1024);
    for (const BYTE expected : {BYTE{0}, BYTE{7}}) {
        auto* const bytes = static_cast<BYTE*>(GlobalLock(block));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(bytes[1023], expected);
        bytes[1023] = 7;
        GlobalUnlock(block);
    }
    EXPECT_EQ(GlobalFree(block), nullptr);
}

TEST(MessageTest, KnownCodesHaveALineAndUnknownOnesNone)
{
    constexpr DWORD Flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    constexpr DWORD Language = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
    for (const DWORD code : {2u, 5u, 1063u}) {
        LPWSTR text = nullptr;
        const DWORD length =
            FormatMessageW(Flags, nullptr, code, Language, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
        const vlt::LocalMem owner(text);
        ASSERT_GT(length, 2u) << code;
        EXPECT_EQ(WString(text).size(), length);
        EXPECT_EQ(WString(text).substr(length - 2), TEXT("\r\n"));
    }
    LPWSTR text = nullptr;
    EXPECT_EQ(FormatMessageW(Flags, nullptr, 0x2FFFFFFF, Language, reinterpret_cast<LPWSTR>(&text), 0, nullptr), 0u);
    EXPECT_EQ(text, nullptr);
}

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
    const auto now = [] { return static_cast<std::uint64_t>(std::time(nullptr)); };
    const std::uint64_t before = now();
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    const std::uint64_t after = now();
    const std::uint64_t ticks = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    const std::uint64_t seconds = (ticks - UnixEpoch) / 10000000;
    EXPECT_LE(before, seconds);
    EXPECT_LE(seconds, after);

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

TEST(SystemInfoTest, A64BitSystemOfTheNtFamily)
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    ASSERT_TRUE(GetVersionExW(&version));
    EXPECT_EQ(version.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
    EXPECT_GE(version.dwMajorVersion, 5u);

    SYSTEM_INFO system{};
    GetNativeSystemInfo(&system);
    EXPECT_EQ(system.wProcessorArchitecture, PROCESSOR_ARCHITECTURE_AMD64);
    EXPECT_EQ(system.dwPageSize, 4096u);
    EXPECT_EQ(system.dwNumberOfProcessors, std::thread::hardware_concurrency());

    BOOL wow64 = TRUE;
    ASSERT_TRUE(IsWow64Process(GetCurrentProcess(), &wow64));
    EXPECT_FALSE(wow64);
}

TEST(AccountTest, TheUserOfTheProcessHasASid)
{
    char name[256] = "";
    DWORD size = sizeof name;
    ASSERT_TRUE(GetUserNameA(name, &size));
    EXPECT_EQ(size, std::string(name).size() + 1);

    DWORD sidSize = 0;
    DWORD domainSize = 0;
    SID_NAME_USE use = SidTypeUnknown;
    EXPECT_FAILS(LookupAccountNameA(nullptr, "no such account 4711", nullptr, &sidSize, nullptr, &domainSize, &use),
                 ERROR_NONE_MAPPED);
    EXPECT_FALSE(LookupAccountNameA(nullptr, name, nullptr, &sidSize, nullptr, &domainSize, &use));
    ASSERT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<BYTE> sid(sidSize);
    std::string domain(domainSize, '\0');
    ASSERT_TRUE(LookupAccountNameA(nullptr, name, sid.data(), &sidSize, domain.data(), &domainSize, &use));
    EXPECT_EQ(use, SidTypeUser);
    ASSERT_TRUE(IsValidSid(sid.data()));
    const BYTE count = *GetSidSubAuthorityCount(sid.data());
    EXPECT_EQ(sidSize, 8u + 4u * count) << "as much as the sub-authorities need";
    EXPECT_NE(GetSidIdentifierAuthority(sid.data())->Value[5], 0);
    EXPECT_EQ(reinterpret_cast<BYTE*>(GetSidSubAuthority(sid.data(), count - 1u)), sid.data() + sidSize - 4);
}

VLT_CHILD(command_line)
{
    const WString line = GetCommandLineW();
    return line.find(TEXT("system_test")) != WString::npos && line.find(TEXT("two words")) != WString::npos ? 0 : 1;
}

TEST(CommandLineTest, HoldsTheProgramAndItsArguments)
{
    vlt::test::Child child("command_line", {"two words"});
    EXPECT_EQ(child.Wait(20000), 0);
}
