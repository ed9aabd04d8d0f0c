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

// Every kind, and every way in which its newest file can be unusable.
TEST(ScanLibrary, AFailedReloadLeavesTheOldPatternsInForce)
{
    ScanLibrary library;
    ASSERT_TRUE(library.Configure(library.Config()));
    const auto reload = [&](std::uint32_t kind) {
        const int done = library.Entry<ASReloadPatternW_t>("ASReloadPatternW")(library.Handle(), kind, nullptr);
        const int error = library.Entry<ASGetLastError_t>("ASGetLastError")(library.Handle());
        EXPECT_EQ(done == 1, error == AS_OK);
        return error;
    };
    const struct {
        std::uint32_t kind;
        std::string stem, head;
    } kinds[] = {{AS_RELOAD_VIRUS, "ptf$qrv", ""},
                 {AS_RELOAD_SPYWARE, "ptf$spy", "kind spyware\n"},
                 {AS_RELOAD_PACKER, "ptf$pck", "kind packer\n"}};
    const TempFolder files;
    WriteBytes(files.HostPath("found"), ThreatText);
    for (const auto& each : kinds) {
        const std::uint32_t kind = each.kind;
        const std::string second = each.stem + ".002", third = each.stem + ".003";
        const auto older = library.Folder().HostPath(second), file = library.Folder().HostPath(third);
        const auto signatures = [&](const std::string& version) {
            return each.head + "version " + version + "\ntext Found" +
                   (kind == AS_RELOAD_SPYWARE ? " adware \"" : " \"") + ThreatText + "\"\n";
        };
        if (kind != AS_RELOAD_VIRUS) {
            EXPECT_EQ(reload(kind), AS_E_PATTERN); // there is none yet
        }
        library.WritePatterns(second.c_str(), signatures("200"));
        EXPECT_EQ(reload(kind), AS_OK);
        library.WritePatterns(third.c_str(), signatures("300"));
        const auto fails = [&](const char* how) {
            EXPECT_EQ(reload(kind), AS_E_PATTERN) << how;
            EXPECT_EQ(reload(AS_RELOAD_ALL), AS_E_PATTERN) << how;
            const auto scan = library.Entry<ASScanFileW_t>("ASScanFileW");
            EXPECT_GT(scan(library.Handle(), files.PathW("found").c_str()), 0) << how;
        };
        const std::string whole = ReadBytes(file);
        std::string other = whole;
        other[12] = other[12] == 1 ? 2 : 1; // of another kind
        for (const std::string& bad : {std::string(), whole.substr(0, whole.size() - 1), other}) {
            WriteBytes(file, bad);
            fails("damaged");
        }
        std::filesystem::remove(file);
        std::filesystem::create_directory(file);
        fails("unreadable");
        std::filesystem::remove(file);
        const std::string before = ReadBytes(older);
        std::filesystem::remove(older);
        if (kind != AS_RELOAD_VIRUS) // of viruses the older file is left
            fails("gone");
        WriteBytes(older, before);
        EXPECT_EQ(reload(AS_RELOAD_ALL), AS_OK);
    }
    EXPECT_EQ(reload(8), AS_E_ARGUMENT);
    std::uint32_t version = 0;
    EXPECT_EQ(library.Entry<ASGetSpyWarePatternVersion_t>("ASGetSpyWarePatternVersion")(library.Handle(), &version), 1);
    EXPECT_EQ(version, 200u);
    library.WritePatterns("vlblack.004", "kind black\nversion 400\n");
    EXPECT_EQ(library.Entry<ASGetPatternVersion_t>("ASGetPatternVersion")(library.Handle(), "vlblack", &version), 1);
    EXPECT_EQ(version, 400u);
}

TEST(ScanLibrary, ScansAFileOnDemandWhilePatternsAreReloaded)
{
    ScanLibrary library;
    ASSERT_TRUE(library.Configure(library.Config()));
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
