// The service's text log, the virus list and the forms of version numbers.
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/ServiceLog.h"
#include "platform/Unique.h"
#include "realtime/State.h"
#include "realtime/Versions.h"
#include "realtime/VirusList.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>

namespace
{

TEST(ProgramFiles, ServiceLogIsWrittenOnlyWhenItExists)
{
    const std::filesystem::path log = vlt::test::ProgramFolder() / "VLNTSRV.LOG";
    std::filesystem::remove(log);
    EXPECT_EQ(WriteServiceLog(TEXT("lost\r\n")), 0u);
    EXPECT_FALSE(std::filesystem::exists(log));

    vlt::test::WriteBytes(log, "before\n");
    const DWORD first = WriteServiceLog(TEXT("ASSetConfigW = %d\r\n"), -1);
    const DWORD second = WriteServiceLog(TEXT("%s"), WString(3000, TEXT('x')));
    const std::string text = vlt::test::ReadBytes(log);
    EXPECT_TRUE(std::regex_match(
        text, std::regex("before\n[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2} ASSetConfigW = -1\r\n\r\n"
                         "[0-9/]{10} [0-9:]{5} x+")))
        << text;
    EXPECT_EQ(second, 1023u);
    EXPECT_EQ(text.size(), 7u + first + second);

    // Another writer at the same moment.
    vlt::FileHandle writer(CreateFileW((vlt::ProgramFolder() + TEXT("VLNTSRV.LOG")).c_str(), GENERIC_WRITE,
                                       FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(writer);
    EXPECT_EQ(WriteServiceLog(TEXT("lost\r\n")), 0u);
    writer.Reset();
    std::filesystem::remove(log);
}

TEST(ProgramFiles, VersionsAreWrittenInTheProductsForm)
{
    EXPECT_EQ(vlt::EngineInfoText(8.5), TEXT("8.500"));
    EXPECT_EQ(vlt::EngineInfoText(0.0626), TEXT(".063"));
    for (const auto& [minor, expected] : {std::pair{0u, 0u}, {9u, 900u}, {10u, 100u}, {99u, 990u}, {100u, 100u}})
        EXPECT_EQ(vlt::NormalisedMinor(minor), expected);
}

// A library with a name too long for the list, then 5000 short ones.
std::int32_t WINAPI NextName(AsHandle, std::uint64_t* cursor, AsVirusInfo* info)
{
    *info = {.id = static_cast<std::uint32_t>(++*cursor), .kind = 0x80000000, .flags = 1, .name = {}};
    std::memset(info->name, 'n', *cursor == 1 ? sizeof info->name : 3);
    return *cursor <= 5001 ? 1 : 0;
}

TEST(ProgramFiles, VirusListNeedsALibraryThatListsAndReplacesTheFile)
{
    const std::filesystem::path list = vlt::test::ProgramFolder() / "virus.lst";
    vlt::test::WriteBytes(list, std::string(500000, 'x'));
    EXPECT_FALSE(WriteVirusList());
    EXPECT_EQ(std::filesystem::file_size(list), 500000u);

    vlt::ArdScanTable& table = vlt::Realtime().scanTable;
    table.ASGetFirstVirusInfo = table.ASGetNextVirusInfo = NextName;
    EXPECT_TRUE(WriteVirusList());
    table = {};
    const std::string text = vlt::test::ReadBytes(list);
    const std::string first = std::string(200, 'n') + ",1,2147483648,1\r\nnnn,2,2147483648,1\r\n";
    EXPECT_EQ(text.substr(0, first.size()), first);
    EXPECT_TRUE(text.ends_with("\r\nnnn,5001,2147483648,1\r\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5001);
    std::filesystem::remove(list);
}

} // namespace
