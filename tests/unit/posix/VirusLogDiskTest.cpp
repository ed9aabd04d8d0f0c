// The virus log on a disk that is full or not writable: a small tmpfs over the Log folder, in a mount
// namespace of the test's own. Needs root.
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VirusLog.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>

namespace
{

namespace fs = std::filesystem;

class VirusLogDisk : public testing::Test
{
protected:
    void SetUp() override
    {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "no mount namespace of its own without the privilege";
        fs::create_directories(m_folder);
    }

    void Mount(unsigned long flags)
    {
        if (mount("none", m_folder.c_str(), "tmpfs", flags, "size=4096") != 0)
            GTEST_SKIP() << "tmpfs cannot be mounted here";
    }

    const fs::path m_folder = vlt::test::ProgramFolder() / "Log";
    const fs::path m_file = m_folder / "20070605.VLG";
    const SYSTEMTIME m_day{2007, 6, 2, 5, 12, 0, 0, 0};
    CVirusLogForRealTimeScan2 m_log;
};

TEST_F(VirusLogDisk, FullDiskLosesTheLineAndNoEarlierOne)
{
    Mount(0);
    if (IsSkipped())
        return;
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("kept\r\n")));
    const std::string before = vlt::test::ReadBytes(m_file);
    EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, WString(4000, TEXT('x'))));
    EXPECT_EQ(vlt::test::ReadBytes(m_file).substr(0, before.size()), before);
    fs::remove(m_file);
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("again\r\n")));
}

TEST_F(VirusLogDisk, ReadOnlyDiskIsAFailure)
{
    Mount(MS_RDONLY);
    if (IsSkipped())
        return;
    EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, TEXT("lost\r\n")));
    EXPECT_FALSE(fs::exists(m_file));
}

} // namespace
