// Scans and cleaning on demand, on a second handle beside the one that guards.
#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

#include <thread>

namespace fs = std::filesystem;
using namespace vlt::test;

namespace
{

struct OnDemand {
    ScanLibrary library;
    TempFolder files;
    AsHandle handle = nullptr;
    std::vector<AsScanResultRecord> results;
    std::thread::id caller = std::this_thread::get_id();

    OnDemand()
    {
        library.WritePatterns("ptf$qrv.002", "version 200\n"
                                             "hex Kept 6B 65 65 70 2D 6D 65\n"             // keep-me
                                             "hex Gone clean 63 75 74 2D 6D 65\n"          // cut-me
                                             "hex Blank clean=zero 7A 65 72 6F 2D ?? 65\n" // zero-me
        );
        const WString folder = library.Folder().PathW() + TEXT("\\");
        AsInitRecord record{};
        record.appFolder = record.patternFolder = folder.c_str();
        record.version = AS_INIT_VERSION;
        handle = library.Entry<ASInitScanW_t>("ASInitScanW")(2, &record, 0);
        AsQuarantineConfigRecord config{};
        config.action = AS_ACTION_CLEAN;
        config.extractSizeLimit = -1;
        files.PathW("backup").copy(config.backupFolder, 259);
        config.callback = &OnResult;
        config.context = this;
        EXPECT_EQ(library.Entry<ASSetConfigW_t>("ASSetConfigW")(handle, &config), 1);
    }
    ~OnDemand() { EXPECT_EQ(library.Entry<ASDeInitScan_t>("ASDeInitScan")(handle), 1); }

    std::int32_t Scan(const char* name) const
    {
        return library.Entry<ASScanFileW_t>("ASScanFileW")(handle, files.PathW(name).c_str());
    }
    bool Clean(AsHandle by, const char* name) const
    {
        const auto action = library.Entry<ASManualActionW_t>("ASManualActionW");
        return action(by, files.PathW(name).c_str(), AS_ACTION_CLEAN) == 1;
    }
    static void CALLBACK OnResult(void* context, const AsScanResultRecord* record)
    {
        auto& self = *static_cast<OnDemand*>(context);
        EXPECT_NE(std::this_thread::get_id(), self.caller);
        self.results.push_back(*record);
    }
};

} // namespace

TEST(OnDemand, TellsTheFileAndWhetherItCanBeCleanedOnAThreadOfItsOwn)
{
    OnDemand files;
    const std::pair<const char*, std::uint32_t> contents[] = {
        {"harmless", 0}, {"a cut-me b", 1}, {"zero-Xe and cut-me", 1}, {"cut-me and keep-me", 2}, {"keep-me", 2}};
    for (const auto& [content, status] : contents) {
        files.results.clear();
        WriteBytes(files.files.HostPath("a"), content);
        EXPECT_EQ(files.Scan("a"), status == 0 ? 0 : 1) << content;
        ASSERT_EQ(files.results.size(), status == 0 ? 0u : 1u) << content;
        if (status == 0)
            continue;
        EXPECT_EQ(files.results[0].status, status) << content;
        EXPECT_EQ(files.results[0].innerName[0], 0);
        EXPECT_EQ(WString(files.results[0].path), files.files.PathW("a"));
        EXPECT_EQ(ReadBytes(files.files.HostPath("a")), content); // a scan changes nothing
    }
    EXPECT_LT(files.Scan("missing"), 0);
}

TEST(OnDemand, CleansAfterABackupOrLeavesTheFileAsItWas)
{
    const OnDemand files;
    const fs::path file = files.files.HostPath("a");
    const std::string filling(400000, 'x'), zeros(7, '\0');
    const std::string infected = "cut-mehead" + filling + "cut-me" + filling + "zero-meend cut-me";
    WriteBytes(file, infected);
    EXPECT_FALSE(files.Clean(files.library.Handle(), "a")); // that one guards
    ASSERT_TRUE(files.Clean(files.handle, "a"));
    EXPECT_TRUE(ReadBytes(file) == "head" + filling + filling + zeros + "end ");
    EXPECT_FALSE(files.Clean(files.handle, "a")); // nothing is left to do
    const auto restore = files.library.Entry<ASRestoreFileW_t>("ASRestoreFileW");
    ASSERT_EQ(restore(files.handle, files.files.PathW("backup\\a.RB0").c_str(), files.files.PathW("b").c_str()), 1);
    EXPECT_TRUE(ReadBytes(files.files.HostPath("b")) == infected);

    WriteBytes(file, "cut-cut-meme!"); // what is left is one again
    ASSERT_TRUE(files.Clean(files.handle, "a"));
    EXPECT_EQ(ReadBytes(file), "!");
    WriteBytes(file, "cut-me keep-me");
    EXPECT_FALSE(files.Clean(files.handle, "a"));
    EXPECT_EQ(ReadBytes(file), "cut-me keep-me");
    EXPECT_FALSE(fs::exists(files.files.HostPath("backup/a.RB2")));
    for (char n = '2'; n <= '9'; ++n)
        WriteBytes(files.files.HostPath(std::string("backup/a.RB") + n), "taken");
    WriteBytes(file, "cut-me");
    EXPECT_FALSE(files.Clean(files.handle, "a")); // no backup, no change
    EXPECT_EQ(ReadBytes(file), "cut-me");
}
