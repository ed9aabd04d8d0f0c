// Encoding and restoring through the library's entry points.
#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

#include <fstream>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#endif

namespace fs = std::filesystem;
using namespace vlt::test;

namespace
{

struct Encoder {
    ScanLibrary library;
    TempFolder files;

    bool Encode(const char* from, const char* to) const { return Call("ASEncodeFileW", from, to); }
    bool Restore(const char* from, const char* to) const { return Call("ASRestoreFileW", from, to); }
    bool Info(const char* file, AsBackupInfoW& info) const
    {
        return library.Entry<ASGetBackupFileInfoW_t>("ASGetBackupFileInfoW")(library.Handle(),
                                                                             files.PathW(file).c_str(), &info) == 1;
    }
    std::string Read(const char* name) const { return ReadBytes(files.HostPath(name)); }
    std::size_t Count() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(files.HostPath()), fs::directory_iterator()));
    }

private:
    bool Call(const char* entry, const char* from, const char* to) const
    {
        return library.Entry<ASEncodeFileW_t>(entry)(library.Handle(), files.PathW(from).c_str(),
                                                     files.PathW(to).c_str()) == 1;
    }
};

} // namespace

TEST(Encode, ContentsOfEverySizeComeBackAndLookLikeNothingInBetween)
{
    const Encoder files;
    for (const std::size_t size : {0u, 1u, 7u, 262143u, 262144u, 262145u, 1000003u}) {
        std::string content;
        while (content.size() < size)
            content += ThreatText;
        content.resize(size);
        WriteBytes(files.files.HostPath("a"), content);
        WriteBytes(files.files.HostPath("b"), "is replaced");
        ASSERT_TRUE(files.Encode("a", "b")) << size;
        if (size > 100) {
            EXPECT_EQ(files.Read("b").find("stands for"), std::string::npos);
        }
        ASSERT_TRUE(files.Restore("b", "c")) << size;
        EXPECT_TRUE(files.Read("c") == content) << size;
        EXPECT_EQ(files.Count(), 3u);
    }
    AsBackupInfoW info{};
    ASSERT_TRUE(files.Info("b", info));
    EXPECT_EQ(WString(info.sourcePath), files.files.PathW("a"));
    EXPECT_EQ(WString(info.backupPath), files.files.PathW("b"));
    EXPECT_EQ(info.encoded, 1u);
    EXPECT_GT(info.time, 1700000000u);
    ASSERT_TRUE(files.Encode("c", "b")); // restored, and put back: it is still the first file
    ASSERT_TRUE(files.Info("b", info));
    EXPECT_EQ(WString(info.sourcePath), files.files.PathW("a"));
    AsBackupInfoA narrow{};
    const auto narrowInfo = files.library.Entry<ASGetBackupFileInfo_t>("ASGetBackupFileInfo");
    EXPECT_EQ(narrowInfo(files.library.Handle(), files.files.HostPath("b").string().c_str(), &narrow), 1);
    EXPECT_EQ(std::string(narrow.sourcePath), NarrowText(info.sourcePath));
}

TEST(Encode, RefusesWhatIsTornForeignOrNoFileAndLeavesTheDestination)
{
    const Encoder files;
    WriteBytes(files.files.HostPath("a"), std::string(300000, 'a'));
    WriteBytes(files.files.HostPath("kept"), "kept");
    ASSERT_TRUE(files.Encode("a", "good"));
    const std::string good = files.Read("good");
    const auto refused = [&](const std::string& bytes) {
        WriteBytes(files.files.HostPath("bad"), bytes);
        return !files.Restore("bad", "kept") && files.Read("kept") == "kept";
    };
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}, std::size_t{170}, good.size() - 1})
        EXPECT_TRUE(refused(good.substr(0, size))) << size;
    EXPECT_TRUE(refused(good + "x"));
    for (const std::size_t at : {std::size_t{3}, std::size_t{20}, std::size_t{30}, std::size_t{150}, good.size() - 5}) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 4);
        EXPECT_TRUE(refused(bad)) << at;
    }
    AsBackupInfoW info{};
    EXPECT_FALSE(files.Info("kept", info));
    EXPECT_FALSE(files.Encode("missing", "kept"));
    EXPECT_FALSE(files.Encode("a", "no such folder/x"));
    fs::create_directory(files.files.HostPath("folder"));
    EXPECT_FALSE(files.Restore("good", "folder"));
    EXPECT_FALSE(files.Encode("folder", "kept"));
    EXPECT_EQ(files.Count(), 5u); // no temporary file stays
}

#ifndef _WIN32
namespace
{

struct stat StatOf(const fs::path& file)
{
    struct stat info {
    };
    EXPECT_EQ(lstat(file.c_str(), &info), 0);
    return info;
}

} // namespace

TEST(Encode, OwnerModeTimesAndAttributesComeBackButNoRightsFromAForeignFile)
{
    const Encoder files;
    const fs::path file = files.files.HostPath("a"), encoded = files.files.HostPath("b"),
                   back = files.files.HostPath("c");
    WriteBytes(file, "content");
    const bool named = setxattr(file.c_str(), "user.note", "\0x", 2, 0) == 0; // not every file system has them
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(file.c_str(), 1234, 4321), 0);
    }
    ASSERT_EQ(chmod(file.c_str(), 04751), 0);
    const timespec times[2] = {{1000000001, 123456789}, {-77, 987654321}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    const struct stat before = StatOf(file);
    ASSERT_TRUE(files.Encode("a", "b"));
    EXPECT_EQ(StatOf(encoded).st_mode & 07777u, 0600u);
    ASSERT_TRUE(files.Restore("b", "c"));
    const struct stat after = StatOf(back);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(after.st_mtim.tv_sec, -77);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    char value[8];
    EXPECT_EQ(getxattr(back.c_str(), "user.note", value, sizeof(value)), named ? 2 : -1);
    // Whoever can write the encoded file could have made up the header.
    ASSERT_EQ(chmod(encoded.c_str(), 0666), 0);
    ASSERT_TRUE(files.Restore("b", "c"));
    EXPECT_EQ(StatOf(back).st_mode & 07777u, 0751u);
    EXPECT_EQ(StatOf(back).st_uid, geteuid());
    // A link in the destination's place is replaced, and one in the source's is not followed.
    WriteBytes(files.files.HostPath("victim"), "victim");
    fs::remove(back);
    fs::create_symlink("victim", back);
    fs::create_symlink("b", files.files.HostPath("link"));
    EXPECT_FALSE(files.Restore("link", "d"));
    ASSERT_TRUE(files.Restore("b", "c"));
    EXPECT_TRUE(S_ISREG(StatOf(back).st_mode));
    EXPECT_EQ(files.Read("victim"), "victim");
}

VLT_CHILD(encode_large)
{
    const Encoder files;
    WriteBytes(files.files.HostPath("a"), "begin");
    fs::resize_file(files.files.HostPath("a"), 128u << 20);
    struct rusage before {
    }, after{};
    getrusage(RUSAGE_SELF, &before);
    const bool done = files.Encode("a", "b") && files.Restore("b", "c");
    getrusage(RUSAGE_SELF, &after);
    if (!done || fs::file_size(files.files.HostPath("c")) != 128u << 20)
        return 1;
    std::ifstream back(files.files.HostPath("c"), std::ios::binary);
    std::string begin(6, 'x');
    back.read(begin.data(), 6);
    return begin == std::string("begin\0", 6) && after.ru_maxrss - before.ru_maxrss < 16 << 10 ? 0 : 2;
}

TEST(Encode, ALargeFileTakesLittleMemory)
{
    Child child("encode_large", {});
    EXPECT_EQ(child.Wait(60000), 0);
}
#endif
