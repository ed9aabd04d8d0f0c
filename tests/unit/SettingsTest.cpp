// The lists among the settings; the way of every value to the library is tested on the real service.
#include "realtime/Settings.h"
#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/Registry.h"
#include "platform/Format.h"
#include "realtime/DefaultExtension.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

namespace
{

TEST(ExtensionList, Rewriting)
{
    const struct {
        const char* list;
        const char* result;
    } cases[] = {
        {"", ".{*.WBS"},
        {"EXE;COM", ".{*EXE.COM.WBS"},
        {"\"EXE\";\"COM\"", ".{*EXE.COM.WBS"},
        {"EXE;WBS", ".{*EXE.WBS"},
        {"EXE;XWBSX", ".{*EXE.XWBSX"},
        {"EXE;wbs", ".{*EXE.wbs.WBS"},
        {"EXE;{WBS};COM", ".{*EXE.WBS"},
        {";{", ".{*.WBS"},
        {"EXE;", ".{*EXE..WBS"},
        {"EXE;\"{X}", ".{*EXE.{X}.WBS"},
        {"W\"BS", ".{*WBS"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(RewriteExtensionList(test.list), test.result) << test.list;
}

TEST(Settings, OnlySoManyExceptionsAreRead)
{
    const auto set = [](int number, const WCHAR* value) {
        return vlt::SetRegString(HKEY_LOCAL_MACHINE, vlt::kExceptionKey, vlt::Format(TEXT("File%d"), number).c_str(),
                                 value);
    };
    std::vector<WString> files{TEXT("kept")};
    EXPECT_EQ(GetExceptionFileList(files), 0) << "no key";
    for (int i = 0; i <= 101; ++i)
        ASSERT_TRUE(set(i, i == 0 ? TEXT("C:\\a") : TEXT("C:\\f")));
    EXPECT_EQ(GetExceptionFileList(files), 1);
    ASSERT_EQ(files.size(), 101u);
    EXPECT_EQ(files[0], TEXT("kept"));
    EXPECT_EQ(files[1], TEXT("C:\\a"));
    EXPECT_EQ(files[2], TEXT("C:\\f"));
    vlt::DeleteRegKey(HKEY_LOCAL_MACHINE, TEXT("Software\\Veltrano\\Ardentis\\15"), TEXT("Exception"));
}

TEST(Settings, ForbidListKeepsWholeEntriesWithinItsSize)
{
    std::string excel;
    for (int i = 0; i < 100; ++i)
        excel += "C:\\" + std::string(100, static_cast<char>('a' + i % 26)) + "\\*";
    const std::string list = MakeVirusForbidList(excel + "**");
    EXPECT_LE(list.size(), kVirusForbidListSize);
    EXPECT_GT(list.size(), kVirusForbidListSize - 110);
    EXPECT_TRUE(list.ends_with(std::string("\\\0\0", 3)));
    EXPECT_EQ(list.find(std::string(2, '\0')), list.size() - 2) << "an empty entry would end the list";
    EXPECT_EQ(list.find('*'), std::string::npos);
}

} // namespace
