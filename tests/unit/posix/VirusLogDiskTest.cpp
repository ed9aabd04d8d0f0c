// The virus log on a disk that is full or not writable. Needs root.
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VirusLog.h"
#include "tests/support/posix/Privileges.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace vlt::test;

TEST(VirusLogDisk, FullOrReadOnlyLosesTheLineAndNoEarlierOne)
{
    const fs::path folder = ProgramFolder() / "Log";
    const fs::path file = folder / "20070605.VLG";
    const SYSTEMTIME day{2007, 6, 2, 5, 12, 0, 0, 0};
    CVirusLogForRealTimeScan2 log;
    fs::create_directories(folder);
    if (!MountSmallDisk(folder, "4096"))
        GTEST_SKIP() << "needs the right to mount";
    EXPECT_TRUE(log.WriteVirusLogToFile(day, TEXT("kept\r\n")));
    const std::string before = ReadBytes(file);
    EXPECT_FALSE(log.WriteVirusLogToFile(day, WString(4000, TEXT('x'))));
    EXPECT_EQ(ReadBytes(file).substr(0, before.size()), before);
    fs::remove(file);
    EXPECT_TRUE(log.WriteVirusLogToFile(day, TEXT("again\r\n")));
    ASSERT_EQ(mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_FALSE(log.WriteVirusLogToFile(day, TEXT("lost\r\n")));
    EXPECT_EQ(ReadBytes(file).size(), before.size() + 2);
}
