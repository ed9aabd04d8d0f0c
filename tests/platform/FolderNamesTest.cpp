// Names that are looked for in any case while others change the folder behind the program's back.
#include "platform/posix/file/Path.h"
#include "tests/support/Support.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vlt::test;
namespace fs = std::filesystem;

namespace
{

constexpr const char* kNames[] = {"one", "ONE", "One", "two", "TWO", "tWo"};

class FolderNames : public testing::Test
{
protected:
    FolderNames()
    {
        fs::create_directory(Host());
        for (int i = 0; i < 5; ++i)
            EXPECT_FALSE(Finds("one")); // often enough to be kept
    }

    fs::path Host(const std::string& name = {}) const { return m_folder.HostPath("work") / name; }
    bool Finds(const char* name) const
    {
        return GetFileAttributesW(m_folder.PathW(std::string("Work\\") + name).c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    void Change(unsigned long kind, const std::string& name, const std::string& other)
    {
        const fs::path outside = m_folder.HostPath("outside");
        if (kind == 0) {
            WriteBytes(Host(name), "x");
        } else if (kind == 1) {
            fs::remove(Host(name));
        } else if (kind == 2 && fs::exists(outside)) {
            fs::rename(outside, Host(name));
        } else if (kind < 5 && fs::exists(Host(name))) { // over another file, too
            fs::rename(Host(name), kind == 2 ? outside : Host(other));
        } else if (kind == 5) { // another folder in its place
            fs::rename(Host(), m_folder.HostPath("old"));
            fs::create_directory(Host());
            fs::create_hard_link(m_folder.HostPath("linked"), Host(name));
            fs::remove_all(m_folder.HostPath("old"));
        }
    }

    TempFolder m_folder;
};

} // namespace

TEST_F(FolderNames, FollowEveryChangeOfAFolder)
{
    const char* const given = std::getenv("VLT_NAMES_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    SCOPED_TRACE("VLT_NAMES_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    WriteBytes(m_folder.HostPath("linked"), "x");
    for (int i = 0; i < 1000; ++i) {
        Change(random() % 16 == 0 ? 5 : random() % 5, kNames[random() % 6], kNames[random() % 6]);
        for (const char* name : kNames) {
            bool there = false;
            for (const auto& entry : fs::directory_iterator(Host()))
                there = there || strcasecmp(entry.path().filename().c_str(), name) == 0;
            ASSERT_EQ(Finds(name), there) << name << " after change " << i;
        }
    }
}

TEST_F(FolderNames, AreForgottenWhenChangesWereLost)
{
    WriteBytes(Host("ONE"), "x");
    EXPECT_TRUE(Finds("one"));
    // More than the host queues (fs.inotify.max_queued_events, usually 16384).
    for (int i = 0; i < 20'000; ++i)
        fs::rename(Host(i % 2 == 0 ? "ONE" : "other"), Host(i % 2 == 0 ? "other" : "ONE"));
    fs::rename(Host("ONE"), Host("TWO"));
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(Finds("one"));
        EXPECT_TRUE(Finds("two"));
    }
}

TEST_F(FolderNames, AreEachProcessesOwn)
{
    const pid_t child = fork();
    if (child == 0) {
        // The parent must hear of this file although the child has looked for it first.
        WriteBytes(Host("ONE"), "x");
        bool found = true;
        for (int i = 0; i < 5; ++i)
            found = found && Finds("one");
        _exit(found ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(Finds("one"));
}
