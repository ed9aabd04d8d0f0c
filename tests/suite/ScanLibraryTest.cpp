#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

using namespace vlt::test;

TEST(ScanLibrary, TellsWhyItCannotStart)
{
    const ScanLibrary library;
    const TempFolder empty;
    const WString folder = empty.PathW() + TEXT("\\");
    AsInitRecord record{};
    record.appFolder = record.patternFolder = folder.c_str();
    record.version = AS_INIT_VERSION;
    const auto init = library.Entry<ASInitScanW_t>("ASInitScanW");
    EXPECT_EQ(init(2, &record, 1), nullptr);
    EXPECT_EQ(record.reason, std::uint32_t{AS_REASON_NO_PATTERN});
    EXPECT_EQ(init(1, &record, 1), nullptr);
    EXPECT_EQ(record.reason, std::uint32_t{AS_REASON_ARGUMENT});
    EXPECT_EQ(library.Entry<ASGetLastError_t>("ASGetLastError")(reinterpret_cast<AsHandle>(5)), AS_E_HANDLE);
    EXPECT_FALSE(library.Start()); // not configured
    EXPECT_EQ(library.Entry<ASGetLastError_t>("ASGetLastError")(library.Handle()), AS_E_STATE);
}

TEST(ScanLibrary, GivesVersionsListsAndNames)
{
    const ScanLibrary library;
    AsPatternInformation patterns{};
    EXPECT_EQ(library.Entry<ASGetPatternInformation_t>("ASGetPatternInformation")(library.Handle(), &patterns), 1);
    EXPECT_EQ(patterns.version, 100u);
    std::uint32_t size = 10;
    WCHAR list[1024];
    const auto extensions = library.Entry<ASGetEngineDefaultExtListW_t>("ASGetEngineDefaultExtListW");
    EXPECT_EQ(extensions(library.Handle(), list, &size), 0);
    EXPECT_EQ(extensions(library.Handle(), list, &size), 1);
    EXPECT_NE(NarrowText(list).find(";EXE;"), std::string::npos);
    EXPECT_EQ(NarrowText(list).size() + 1, size);
    std::uint64_t cursor = 0;
    AsVirusInfo info{};
    EXPECT_EQ(library.Entry<ASGetVirusInfoStep_t>("ASGetFirstVirusInfo")(library.Handle(), &cursor, &info), 1);
    EXPECT_STREQ(info.name, "Test-Virus");
    EXPECT_EQ(library.Entry<ASGetVirusInfoStep_t>("ASGetNextVirusInfo")(library.Handle(), &cursor, &info), 0);
    std::uint32_t version = 1;
    EXPECT_EQ(library.Entry<ASGetPatternVersion_t>("ASGetPatternVersion")(library.Handle(), "vlwhite", &version), 0);
    EXPECT_EQ(version, 0u);
}

TEST(ScanLibrary, ScansAFileOnDemandWhilePatternsAreReloaded)
{
    const ScanLibrary library;
    ASSERT_TRUE(library.Configure(const_cast<ScanLibrary&>(library).Config()));
    const TempFolder files;
    WriteBytes(files.HostPath("bad"), ThreatText);
    WriteBytes(files.HostPath("good"), "harmless");
    const auto scan = library.Entry<ASScanFileW_t>("ASScanFileW");
    const auto reload = library.Entry<ASReloadPatternW_t>("ASReloadPatternW");
    std::thread reloader([&] {
        for (int i = 0; i < 50; ++i)
            EXPECT_EQ(reload(library.Handle(), AS_RELOAD_ALL, nullptr), 1);
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_GT(scan(library.Handle(), files.PathW("bad").c_str()), 0);
        EXPECT_EQ(scan(library.Handle(), files.PathW("good").c_str()), 0);
    }
    reloader.join();
    EXPECT_LT(scan(library.Handle(), files.PathW("missing").c_str()), 0);
}
