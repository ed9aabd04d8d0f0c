// Ksapi64.dll as the product calls it, over pattern files that the compiler made.
#include "engine/KsapiAbi.h"
#include "platform/Text.h"
#include "tests/suite/Patterns.h"

#include <gtest/gtest.h>

using namespace vlt::test;

namespace
{

class Ksapi : public testing::Test
{
protected:
    template <typename Function>
    Function Entry(const char* name) const
    {
        void* entry = reinterpret_cast<void*>(GetProcAddress(module.Get(), name));
        EXPECT_NE(entry, nullptr) << name;
        return reinterpret_cast<Function>(entry);
    }

    std::string Newest(const char* stem) const
    {
        char name[260] = "untouched";
        const int result = Entry<KSGetLastPattern_t>("KSGetLastPattern")(Path().c_str(), stem, name);
        WCHAR wide[260]{};
        EXPECT_EQ(
            Entry<KSGetLastPatternW_t>("KSGetLastPatternW")(folder.PathW().c_str(), vlt::ToWide(stem).c_str(), wide),
            result);
        EXPECT_EQ(vlt::ToNarrow(wide), name);
        return result == 0 ? name : "";
    }

    std::string Path(const char* name = "") const { return vlt::ToNarrow(folder.PathW()) + "\\" + name; }

    std::int32_t Version(const char* name) const
    {
        std::int32_t version = -1;
        const int result =
            Entry<KSGetPatternInternalVersion_t>("KSGetPatternInternalVersion")(Path(name).c_str(), &version);
        EXPECT_EQ(result == 0, version != 0);
        return version;
    }

    TempFolder folder;
    vlt::LibraryHandle module = LoadBuilt("Ksapi64.dll");
};

} // namespace

TEST_F(Ksapi, TheNewestWholePatternOfAStemIsNamed)
{
    EXPECT_EQ(Newest("ptf$qrv"), "");
    WritePattern(folder, "ptf$qrv.900", "version 300\nhex A 41424344\n");
    WritePattern(folder, "PTF$QRV.001", "version 1001\nhex A 41424344\n"); // wraps at 1000
    WritePattern(folder, "ptf$qrv.002", "version 1001\nhex A 41424344\n");
    WritePattern(folder, "rb_ptf$qrv.009", "version 9000\nhex A 41424344\n");
    WritePattern(folder, "ptf$spy.003", "kind spyware\nversion 77\nhex S adware 41424344\n");
    EXPECT_EQ(Newest("ptf$qrv"), "ptf$qrv.002");
    EXPECT_EQ(Newest("ptf$spy"), "ptf$spy.003");
    EXPECT_EQ(Newest("*"), "");
    EXPECT_EQ(Version("ptf$qrv.900"), 300);

    // A damaged body says nothing, however new its header claims it is.
    WritePattern(folder, "ptf$qrv.050", "version 5000\nhex A 41424344\n");
    WriteBytes(folder.HostPath("ptf$qrv.050"), ReadBytes(folder.HostPath("ptf$qrv.050")).substr(0, 70));
    EXPECT_EQ(Newest("ptf$qrv"), "ptf$qrv.002");
    EXPECT_EQ(Version("ptf$qrv.050"), 0);
    EXPECT_EQ(Version("missing"), 0);
}

TEST_F(Ksapi, OnlyWhatIsOlderThanThePatternInUseIsDeleted)
{
    const auto remove = Entry<KSDeleteUnusedPattern_t>("KSDeleteUnusedPattern");
    WritePattern(folder, "ptf$qrv.001", "version 100\nhex A 41424344\n");
    WritePattern(folder, "ptf$qrv.002", "version 200\nhex A 41424344\n");
    WritePattern(folder, "ptf$qrv.003", "version 300\nhex A 41424344\n");
    WriteBytes(folder.HostPath("ptf$qrv.004"), "being written");
    WritePattern(folder, "ptf$spy.001", "kind spyware\nversion 1\nhex S adware 41424344\n");
    EXPECT_LT(remove(Path().c_str(), "ptf$qrv", 250), 0);
    EXPECT_EQ(remove(Path().c_str(), "ptf$qrv", 200), 1);
    EXPECT_FALSE(std::filesystem::exists(folder.HostPath("ptf$qrv.001")));
    for (const char* name : {"ptf$qrv.002", "ptf$qrv.003", "ptf$qrv.004", "ptf$spy.001"})
        EXPECT_TRUE(std::filesystem::exists(folder.HostPath(name))) << name;
}

TEST_F(Ksapi, BadArgumentsAreRefused)
{
    const std::int32_t size = Entry<KSGetDefaultExtListSize_t>("KSGetDefaultExtListSize")();
    std::string list(static_cast<std::size_t>(size), 'x');
    const auto extensions = Entry<KSGetDefaultExtList_t>("KSGetDefaultExtList");
    EXPECT_NE(extensions(list.data(), size - 1), 0);
    ASSERT_EQ(extensions(list.data(), size), 0);
    EXPECT_EQ(list.find('\0'), list.size() - 1);

    const auto init = Entry<KSInit_t>("KSInit");
    EXPECT_NE(init(Path().c_str()), 0);
    WritePattern(folder, "ptf$qrv.001", "version 100\nhex A 41424344\n");
    EXPECT_EQ(init(Path().c_str()), 0);

    EXPECT_NE(Entry<KSGetLastPattern_t>("KSGetLastPattern")(nullptr, nullptr, nullptr), 0);
    EXPECT_LT(Entry<KSDeleteUnusedPattern_t>("KSDeleteUnusedPattern")(Path().c_str(), "ptf$qrv", -1), 0);
    EXPECT_NE(Entry<KSGetVersion_t>("KSGetVersion")(nullptr), 0);
}
