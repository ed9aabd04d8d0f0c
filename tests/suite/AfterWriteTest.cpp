#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace fs = std::filesystem;
using namespace vlt::test;

namespace
{
constexpr unsigned Limit = 20000;

bool Found(const ScanLibrary& library, const std::string& name)
{
    const auto detections = library.Detections();
    return std::any_of(detections.begin(), detections.end(), [&](const AsDetectionRecord& record) {
        return NarrowText(record.infectedPath).ends_with(name) && record.denied == 0;
    });
}

// Where the process is known, what the engine's own process writes is not looked at.
void WriteElsewhere(const fs::path& file)
{
    Child writer("write_threat", {file.string()});
    EXPECT_EQ(writer.Wait(Limit), 0);
}
} // namespace

VLT_CHILD(write_threat)
{
    WriteBytes(args[0], ThreatText);
    return 0;
}

TEST(AfterWrite, FindsWhatIsWrittenOrMovedIntoOldAndNewFolders)
{
    const TempFolder guarded, outside;
    ScanLibrary library("[Guard]\nFolder0=" + guarded.HostPath().string() + "\nFolder1=C:\\no such folder\n");
    ASSERT_TRUE(library.Configure(library.Config(AS_DIRECTION_WRITE | AS_DIRECTION_RENAME)));
    fs::create_directory(guarded.HostPath("old"));
    ASSERT_TRUE(library.Start());
    WriteElsewhere(guarded.HostPath("old/written.txt"));
    EXPECT_TRUE(Eventually(Limit, [&] { return Found(library, "written.txt"); })) << library.StatusText();
    WriteBytes(outside.HostPath("x"), ThreatText);
    fs::rename(outside.HostPath("x"), guarded.HostPath("moved.txt"));
    EXPECT_TRUE(Eventually(Limit, [&] { return Found(library, "moved.txt"); }));
    fs::create_directories(guarded.HostPath("new/deep"));
    WriteElsewhere(guarded.HostPath("new/deep/third.txt"));
    EXPECT_TRUE(Eventually(Limit, [&] { return Found(library, "third.txt"); }));
    for (int round = 0; round < 200; ++round) {
        const fs::path storm = guarded.HostPath("storm" + std::to_string(round));
        fs::create_directories(storm / "a");
        WriteBytes(storm / "a" / "x", "harmless");
        std::error_code busy; // the scanner may have it open
        for (const fs::path& each : {storm / "a" / "x", storm / "a", storm})
            fs::remove(each, busy);
    }
    WriteElsewhere(guarded.HostPath("after.txt"));
    EXPECT_TRUE(Eventually(Limit, [&] { return Found(library, "after.txt"); }));
    EXPECT_TRUE(library.Stop());
    EXPECT_NE(library.StatusText().find("(missing)"), std::string::npos) << library.StatusText();
}

TEST(AfterWrite, PutsAwayWhatIsWritten)
{
    const TempFolder guarded;
    ScanLibrary library("[Guard]\nFolder0=" + guarded.HostPath().string() + "\n");
    AsConfigRecord config = library.Config(AS_DIRECTION_WRITE);
    config.firstAction = AS_ACTION_QUARANTINE;
    ASSERT_TRUE(library.Configure(config));
    ASSERT_TRUE(library.Start());
    WriteElsewhere(guarded.HostPath("bad"));
    ASSERT_TRUE(Eventually(Limit, [&] { return !library.Detections().empty(); })) << library.StatusText();
    const AsDetectionRecord record = library.Detections()[0];
    EXPECT_EQ(record.firstResult, std::uint32_t{AS_RESULT_DONE});
    EXPECT_EQ(record.denied, 0u);
    EXPECT_TRUE(Eventually(Limit, [&] { return !fs::exists(guarded.HostPath("bad")); }));
    const auto restore = library.Entry<ASRestoreFileW_t>("ASRestoreFileW");
    EXPECT_EQ(restore(library.Handle(), record.encodedPath, library.Folder().PathW("back").c_str()), 1);
    EXPECT_EQ(ReadBytes(library.Folder().HostPath("back")), ThreatText);
}
