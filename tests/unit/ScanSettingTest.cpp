// The search for Excel's start-up folders. The folders of the installation are in SettingsTest.cpp.
#include "ARDCommon/ScanSetting.h"
#include "ARDCommon/Registry.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

// The textual SID of the account that runs the test, from the bytes of the structure.
WString CurrentHive(std::string& user)
{
    char name[257] = {};
    DWORD nameSize = 256;
    alignas(8) BYTE sid[256] = {};
    DWORD sidSize = sizeof(sid);
    char domain[256] = {};
    DWORD domainSize = sizeof(domain);
    SID_NAME_USE use = SidTypeUnknown;
    if (!GetUserNameA(name, &nameSize) || !LookupAccountNameA(nullptr, name, sid, &sidSize, domain, &domainSize, &use))
        return {};
    user = name;
    WString text = vlt::Format(TEXT("S-%u-%u"), unsigned{sid[0]}, unsigned{sid[7]});
    for (unsigned i = 0; i < sid[1]; ++i) {
        std::uint32_t part = 0;
        std::memcpy(&part, sid + 8 + 4 * i, 4);
        text += vlt::Format(TEXT("-%u"), part);
    }
    return text;
}

TEST(ScanSetting, ExcelFoldersOfTheUser)
{
    std::string user;
    const WString hive = CurrentHive(user);
    ASSERT_FALSE(hive.empty());
    const WString excel = hive + TEXT("\\Software\\Microsoft\\Office\\11.0\\Excel");
    const WString options = excel + TEXT("\\Options");
    const WString profiles = TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList");
    const WString profile = profiles + TEXT("\\") + hive;
    if (vlt::RegKeyExists(HKEY_USERS, excel.c_str()))
        GTEST_SKIP() << "this account's own settings are not to be touched";

    const vlt::test::TempFolder home;
    std::filesystem::create_directories(home.HostPath("Application Data/Microsoft/Excel/Xlstart"));
    std::filesystem::create_directories(home.HostPath("Alt"));
    std::string expected = vlt::ToNarrow(home.PathW("Alt")) + "\\*";
    // An account that has a profile keeps it; the other's is named with a variable, as the system does.
    const bool madeProfile = !vlt::RegKeyExists(HKEY_LOCAL_MACHINE, profile.c_str());
    if (madeProfile) {
        SetEnvironmentVariableW(TEXT("VLT_TEST_HOME"), home.PathW().c_str());
        const WCHAR image[] = TEXT("%VLT_TEST_HOME%");
        vlt::RegKey key;
        ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, profile.c_str(), 0, nullptr, 0, KEY_WRITE | KEY_WOW64_32KEY,
                                  nullptr, key.Receive(), nullptr),
                  LSTATUS{0});
        RegSetValueExW(key.Get(), TEXT("ProfileImagePath"), 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(image),
                       sizeof(image));
        expected.insert(0, vlt::ToNarrow(home.PathW()) + "\\Application Data\\Microsoft\\Excel\\Xlstart\\*");
    }
    EXPECT_TRUE(vlt::SetRegString(HKEY_USERS, options.c_str(), TEXT("AltStartup"), home.PathW("Alt").c_str()));
    EXPECT_TRUE(
        vlt::SetRegString(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, TEXT("UserName"), vlt::ToWide(user).c_str()));
    std::string list;
    GetXLStartFolderList("service", list);
    vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, TEXT("UserName"));
    if (madeProfile)
        vlt::DeleteRegKey(HKEY_LOCAL_MACHINE, profiles.c_str(), hive.c_str());
    vlt::DeleteRegKey(HKEY_USERS, excel.c_str(), TEXT("Options"));
    vlt::DeleteRegKey(HKEY_USERS, (hive + TEXT("\\Software\\Microsoft\\Office\\11.0")).c_str(), TEXT("Excel"));
    EXPECT_EQ(list, expected);
}

} // namespace
