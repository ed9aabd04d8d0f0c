// The quarantine store on a disk that is full or not writable, with a folder where its record file should
// be, and beside a program that holds its lock and is stopped.
#include "tests/unit/QuarantineStore.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

using namespace vlt;
using namespace vlt::test;
namespace fs = std::filesystem;

namespace
{

// A tmpfs of its own in a mount namespace of the test's own. Needs root.
class QuarantineDisk : public testing::Test
{
protected:
    void SetUp() override
    {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", m_folder.HostPath().c_str(), "tmpfs", 0, "size=64k") != 0)
            GTEST_SKIP() << "needs the right to mount";
        m_store.emplace(m_folder.PathW());
    }
    void TearDown() override
    {
        m_store.reset();
        umount2(m_folder.HostPath().c_str(), MNT_DETACH);
    }

    int Append() { return m_store->store.RenameEncodeFileW(TEXT("encoded.bin"), TEXT("C:\\x"), TEXT("T")); }
    DWORD Error() const { return m_store->store.LastErrorCode(); }

    TempFolder m_folder;
    std::optional<QuarantineStore> m_store;
};

} // namespace

TEST_F(QuarantineDisk, FullLosesNothingAndGoesOnWithRoom)
{
    for (int i = 0; i < 3; ++i) {
        WriteBytes(m_folder.HostPath("encoded.bin"), "");
        ASSERT_EQ(1, Append());
    }
    const fs::path filler = m_folder.HostPath("filler");
    const int file = open(filler.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const std::string page(4096, 'x');
    while (write(file, page.data(), page.size()) == static_cast<ssize_t>(page.size())) {
    }
    close(file);

    std::size_t kept = 3;
    for (int i = 0; i < 3; ++i) {
        WriteBytes(m_folder.HostPath("encoded.bin"), "");
        if (Append())
            ++kept;
        else
            EXPECT_EQ(17u, Error());
    }
    EXPECT_LT(kept, 6u);
    const std::vector<QuarantineRecord> before = m_store->Records();
    EXPECT_EQ(kept, before.size());
    EXPECT_EQ(0u, fs::file_size(m_folder.HostPath("QUADB.VDB")) % sizeof(QuarantineRecord));
    EXPECT_EQ(0, m_store->store.UpdateQuarantineDBW(before[0].quarantinedName, 2, TEXT("T2")));
    EXPECT_EQ(kept, m_store->Records().size());
    EXPECT_FALSE(fs::exists(m_folder.HostPath("$VB$.$$$")));

    fs::remove(filler);
    EXPECT_EQ(1, m_store->store.UpdateQuarantineDBW(before[0].quarantinedName, 2, TEXT("T2")));
    WriteBytes(m_folder.HostPath("encoded.bin"), "");
    EXPECT_EQ(1, Append());
    EXPECT_EQ(kept + 1, m_store->Records().size());
    EXPECT_EQ(2u, m_store->Records()[0].status);
}

TEST_F(QuarantineDisk, AnEncodedFileComesFromAnotherFileSystem)
{
    const TempFolder other;
    WriteBytes(other.HostPath("encoded.bin"), "caught");
    EXPECT_EQ(1, m_store->store.RenameEncodeFileW(other.PathW("encoded.bin").c_str(), TEXT("C:\\x"), TEXT("T")));
    ASSERT_EQ(1u, m_store->Records().size());
    EXPECT_EQ("caught", ReadBytes(m_folder.HostPath(ToNarrow(m_store->Records()[0].quarantinedName))));
    // What does not fit stays where it is.
    WriteBytes(other.HostPath("large.bin"), std::string(100'000, 'x'));
    EXPECT_EQ(0, m_store->store.RenameEncodeFileW(other.PathW("large.bin").c_str(), TEXT("C:\\x"), TEXT("T")));
    EXPECT_EQ(33u, Error());
    EXPECT_EQ(100'000u, ReadBytes(other.HostPath("large.bin")).size());
    EXPECT_EQ(1u, m_store->Records().size());
}

TEST_F(QuarantineDisk, ReadOnlyLeavesTheEncodedFileWhereItIs)
{
    WriteBytes(m_folder.HostPath("encoded.bin"), "");
    ASSERT_EQ(1, Append());
    const std::vector<QuarantineRecord> before = m_store->Records();
    WriteBytes(m_folder.HostPath("encoded.bin"), "caught");
    ASSERT_EQ(0, mount("none", m_folder.HostPath().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    EXPECT_EQ(0, Append());
    EXPECT_EQ(15u, Error());
    EXPECT_EQ(0, m_store->store.UpdateQuarantineDBW(before[0].quarantinedName, 2, TEXT("T2")));
    EXPECT_EQ(8u, Error());
    EXPECT_EQ(1u, m_store->Records().size());
    EXPECT_EQ("caught", ReadBytes(m_folder.HostPath("encoded.bin")));
}

TEST(QuarantineStoreFaults, WhatIsNoFileInPlaceOfTheRecordFileFailsEachOperation)
{
    QuarantineStore test;
    ASSERT_EQ(0, mkfifo(test.File("QUADB.VDB").c_str(), 0600));
    QuarantineRecord record{};
    EXPECT_EQ(0, test.store._ReadQuarantineDBW(&record));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    EXPECT_EQ(0, test.store.UpdateQuarantineDBW(TEXT("x"), 2, nullptr));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    fs::remove(test.File("QUADB.VDB"));
    fs::create_directory(test.File("QUADB.VDB"));
    EXPECT_EQ(0, test.Quarantine("caught", TEXT("C:\\x"), TEXT("T")));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    EXPECT_EQ(0, test.store._ReadQuarantineDBW(&record));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    EXPECT_EQ(0, test.store.UpdateQuarantineDBW(TEXT("x"), 2, nullptr));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    // The file is in the store, and gets a record no more.
    std::vector<std::string> kept;
    for (const auto& entry : fs::directory_iterator(test.File("")))
        if (entry.is_regular_file())
            kept.push_back(ReadBytes(entry.path()));
    EXPECT_EQ(std::vector<std::string>{"caught"}, kept);
}

TEST(QuarantineStoreFaults, AnAppendFindsTheEndOfAHugeRecordFile)
{
    QuarantineStore test;
    constexpr std::size_t whole = 3'000'000 * sizeof(QuarantineRecord); // 5.6 GB, of which the disk sees nothing
    WriteBytes(test.File("QUADB.VDB"), "");
    fs::resize_file(test.File("QUADB.VDB"), whole - 1);
    EXPECT_EQ(1, test.Quarantine("caught", TEXT("C:\\x"), TEXT("T")));
    EXPECT_EQ(whole + sizeof(QuarantineRecord), fs::file_size(test.File("QUADB.VDB")));
}

VLT_CHILD(holdStore)
{
    const KernelHandle semaphore(CreateSemaphoreW(nullptr, 1, 1, kQuarantineSemaphore));
    if (WaitForSingleObject(semaphore.Get(), 0) != WAIT_OBJECT_0)
        return 1;
    std::puts("held");
    std::fflush(stdout);
    std::getchar();
    return 0;
}

TEST(QuarantineStoreFaults, AStoppedHolderOfTheLockDelaysTheFirstWriteOnly)
{
    QuarantineStore test;
    Child holder("holdStore", {});
    ASSERT_EQ("held", holder.ReadLine());
    ASSERT_EQ(0, kill(static_cast<pid_t>(holder.Id()), SIGSTOP));
    EXPECT_EQ(1, test.Quarantine("one", TEXT("C:\\one"), TEXT("T")));
    // The writer that did not get the lock has given it back all the same, so the next one gets it.
    const KernelHandle semaphore(OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, FALSE, kQuarantineSemaphore));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(semaphore.Get(), 0));
    ASSERT_TRUE(ReleaseSemaphore(semaphore.Get(), 1, nullptr));
    EXPECT_EQ(1, test.Quarantine("two", TEXT("C:\\two"), TEXT("T")));
    EXPECT_EQ(2u, test.Records().size());
    holder.Kill();
}
