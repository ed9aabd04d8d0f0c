// The engine's default extension list on its way to the registry.
#include "realtime/DefaultExtension.h"
#include "ARDCommon/RealTimeSettings.h"
#include "ARDCommon/Registry.h"
#include "realtime/State.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

WString g_extensions;
std::vector<std::uint32_t> g_sizes; // given to the library, call by call

// Fills the buffer to the last unit when it is just large enough.
std::int32_t WINAPI GetExtensions(AsHandle, WCHAR* buffer, std::uint32_t* size)
{
    g_sizes.push_back(*size);
    const bool fits = g_extensions.size() <= *size;
    *size = static_cast<std::uint32_t>(g_extensions.size());
    if (fits)
        g_extensions.copy(buffer, *size);
    return fits;
}

std::int32_t WINAPI ClaimGigabytes(AsHandle, WCHAR*, std::uint32_t* size)
{
    *size = 0xFFFFFFFF;
    return 0;
}

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

TEST(ExtensionList, IsStoredWhateverItsLength)
{
    int handle = 0;
    std::vector<BYTE> stored;
    const auto read = [&] {
        return vlt::GetRegBytes(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, TEXT("DefaultExtension"), stored);
    };
    vlt::Realtime().scanTable.ASGetEngineDefaultExtListW = GetExtensions;
    for (const std::uint32_t length : {3u, 512u, 513u, 5000u}) {
        g_extensions = WString(length, TEXT('E'));
        g_sizes.clear();
        EXPECT_EQ(WriteEngineDefaultExtList(&handle), 1);
        EXPECT_EQ(g_sizes,
                  length > 512 ? std::vector<std::uint32_t>({512, length}) : std::vector<std::uint32_t>({512}));
        ASSERT_TRUE(read());
        const WString wanted = TEXT(".{*") + WString(length, TEXT('E')) + TEXT(".WBS");
        ASSERT_EQ(stored.size(), (wanted.size() + 1) * sizeof(WCHAR));
        EXPECT_EQ(std::memcmp(stored.data(), wanted.c_str(), stored.size()), 0);
    }
    const std::vector<BYTE> before = stored;
    vlt::Realtime().scanTable.ASGetEngineDefaultExtListW = ClaimGigabytes;
    EXPECT_EQ(WriteEngineDefaultExtList(&handle), 0);
    EXPECT_TRUE(read());
    EXPECT_EQ(stored, before) << "a broken library leaves what is stored";
    vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, TEXT("DefaultExtension"));
}

} // namespace
