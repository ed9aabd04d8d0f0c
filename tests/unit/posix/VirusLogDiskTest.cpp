// The virus log on a disk that is full or not writable: a small tmpfs over the Log folder, in a mount
// namespace of the test's own. Needs root.
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VirusLog.h"
#include "tests/support/posix/Privileges.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

namespace
{

namespace fs = std::filesystem;

class VirusLogDisk : public testing::Test
{
protected:
    VirusLogDisk() { fs::create_directories(m_folder); }

    const fs::path m_folder = vlt::test::ProgramFolder() / "Log";
    const fs::path m_file = m_folder / "20070605.VLG";
    const SYSTEMTIME m_day{2007, 6, 2, 5, 12, 0, 0, 0};
    CVirusLogForRealTimeScan2 m_log;
};

TEST_F(VirusLogDisk, FullDiskLosesTheLineAndNoEarlierOne)
{
    if (!vlt::test::MountSmallDisk(m_folder, "4k"))
        GTEST_SKIP() << "needs the right to mount";
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("kept\r\n")));
    const std::string before = vlt::test::ReadBytes(m_file);
    EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, WString(4000, TEXT('x'))));
    EXPECT_EQ(vlt::test::ReadBytes(m_file).substr(0, before.size()), before);
    fs::remove(m_file);
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("again\r\n")));
}

TEST_F(VirusLogDisk, ReadOnlyDiskIsAFailure)
{
    if (!vlt::test::MountSmallDisk(m_folder, "4k", MS_RDONLY))
        GTEST_SKIP() << "needs the right to mount";
    EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, TEXT("lost\r\n")));
    EXPECT_FALSE(fs::exists(m_file));
}

} // namespace
