// Prevention with fanotify, on a tmpfs in a mount namespace of the test's own. What is opened is opened
// by child processes: the engine's own process is never stopped.
#include "tests/suite/ScanLibrary.h"
#include "tests/support/posix/Privileges.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using namespace vlt::test;

namespace
{

constexpr unsigned Limit = 20000;

class OnAccess : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::create_directory(m_mount);
        if (!MountSmallDisk(m_mount, "64m"))
            GTEST_SKIP() << "needs the right to mount";
    }
    void TearDown() override { umount2(m_mount.c_str(), MNT_DETACH); }

    fs::path File(const std::string& name) const { return m_mount / name; }
    std::string Ini(const std::string& more = {}) const { return "[Guard]\nFolder0=" + m_mount.native() + "\n" + more; }

private:
    TempFolder m_folder;
    const fs::path m_mount = m_folder.HostPath("guarded");
};

// The scan library at work.
struct Guard : ScanLibrary {
    explicit Guard(const std::string& ini) : ScanLibrary(ini)
    {
        EXPECT_TRUE(Configure(Config(AS_DIRECTION_OPEN)) && Start());
    }
};

template <typename Body>
pid_t Fork(Body&& body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    return child;
}

// 128 + signal for one that was killed, -1 for one that does not end.
int ExitOf(pid_t child)
{
    int status = 0;
    if (!Eventually(Limit, [&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int TryOpen(const fs::path& path)
{
    return open(path.c_str(), O_RDONLY | O_CLOEXEC) >= 0 ? 0 : errno;
}

// errno of opening the file in another process.
int OpenElsewhere(const fs::path& path)
{
    return ExitOf(Fork([&] { return TryOpen(path); }));
}

void Age(const fs::path& path) // verdicts on files just written are not kept
{
    struct stat info {
    };
    ASSERT_TRUE(Eventually(Limit, [&] {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return stat(path.c_str(), &info) == 0 &&
               (now.tv_sec - info.st_ctim.tv_sec) * 1000000000L + now.tv_nsec - info.st_ctim.tv_nsec > 60000000L;
    }));
}

} // namespace

VLT_CHILD(guard_until_killed)
{
    Guard library(args[0]);
    library.HoldCallbacks(true);
    std::puts("guarding");
    Eventually(Limit, [&] { return !library.Detections().empty(); });
    std::puts("held");
    pause();
    return 0;
}

// Gives up what cannot be had back, so in a process of its own.
VLT_CHILD(guard_unprivileged)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (syscall(SYS_capget, &header, data) != 0)
        return 1;
    data[0].effective &= ~(1u << CAP_SYS_ADMIN);
    if (syscall(SYS_capset, &header, data) != 0)
        return 2;
    ScanLibrary library(args[0]);
    if (!library.Configure(library.Config()) || !library.Start())
        return 3;
    if (!Eventually(Limit, [&] { return library.StatusText().find("detection after write") != std::string::npos; }))
        return 4;
    const fs::path root = args[1];
    fs::create_directories(root / "new/deep");
    WriteBytes(root / "new/deep/bad", ThreatText);
    mkfifo((root / "new/pipe").c_str(), 0600);
    fs::create_symlink(root / "new/deep/bad", root / "new/link");
    if (!Eventually(Limit, [&] { return !library.Detections().empty(); }))
        return 5;
    const AsDetectionRecord record = library.Detections()[0];
    return record.denied == 0 && NarrowText(record.infectedPath).ends_with("\\new\\deep\\bad") ? 0 : 6;
}

TEST_F(OnAccess, RefusesAnInfectedFileAndFillsTheRecord)
{
    Guard library(Ini());
    WriteBytes(File("bad.txt"), std::string(100000, 'x') + ThreatText);
    WriteBytes(File("good.txt"), "harmless");
    EXPECT_EQ(OpenElsewhere(File("good.txt")), 0);
    const pid_t opener = Fork([&] { return TryOpen(File("bad.txt")); });
    EXPECT_EQ(ExitOf(opener), EPERM);

    const auto detections = library.Detections();
    ASSERT_EQ(detections.size(), 1u);
    const AsDetectionRecord& record = detections[0];
    EXPECT_EQ(NarrowText(record.threatName), "Test-Virus");
    EXPECT_EQ(record.firstAction, std::uint32_t{AS_ACTION_CLEAN});
    EXPECT_EQ(record.firstResult, std::uint32_t{AS_RESULT_FAILED});
    EXPECT_EQ(record.secondAction, std::uint32_t{AS_ACTION_DENY});
    EXPECT_EQ(record.secondResult, std::uint32_t{AS_RESULT_DONE});
    EXPECT_EQ(record.processId, static_cast<std::uint32_t>(opener));
    EXPECT_EQ(record.direction, std::uint32_t{AS_DIRECTION_OPEN});
    EXPECT_EQ(record.denied, 1u);
    const std::string path = NarrowText(record.infectedPath);
    EXPECT_TRUE(path.starts_with("C:\\") || path.starts_with("Z:\\")) << path;
    EXPECT_TRUE(path.ends_with("\\guarded\\bad.txt")) << path;
    EXPECT_TRUE(Eventually(Limit, [&] { return library.StatusText().find("\"prevention\"") != std::string::npos; }));

    ASSERT_TRUE(library.Stop());
    EXPECT_EQ(OpenElsewhere(File("bad.txt")), 0);
}

TEST_F(OnAccess, PutsAFileAwayOnceHoweverManyOpenIt)
{
    ScanLibrary library(Ini());
    AsConfigRecord config = library.Config(AS_DIRECTION_OPEN);
    config.secondAction = AS_ACTION_QUARANTINE;
    ASSERT_TRUE(library.Configure(config));
    const fs::path torn = library.Folder().HostPath("Quarantine/AS0123456789abcdef.part");
    fs::create_directory(torn.parent_path());
    WriteBytes(torn, "left by a crash");
    fs::last_write_time(torn, fs::file_time_type::clock::now() - std::chrono::hours(48));
    ASSERT_TRUE(library.Start());
    const std::string content = std::string(3000000, 'x') + ThreatText;
    WriteBytes(File("bad"), content);
    std::vector<pid_t> openers;
    for (int i = 0; i < 16; ++i)
        openers.push_back(Fork([&] { return TryOpen(File("bad")); }));
    for (const pid_t opener : openers) {
        const int error = ExitOf(opener);
        EXPECT_TRUE(error == EPERM || error == ENOENT) << error;
    }
    EXPECT_FALSE(fs::exists(File("bad")) || fs::exists(torn));
    ASSERT_TRUE(Eventually(Limit, [&] { return library.Status("denied") == library.Detections().size(); }));
    std::vector<AsDetectionRecord> moved;
    for (const AsDetectionRecord& record : library.Detections()) {
        EXPECT_EQ(record.denied, 1u);
        if (record.firstAction == AS_ACTION_DENY) // another opener's access had the file put away
            EXPECT_EQ(record.encodedPath[0], 0);
        else
            moved.push_back(record);
    }
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved[0].firstResult, std::uint32_t{AS_RESULT_FAILED});
    EXPECT_EQ(moved[0].secondAction, std::uint32_t{AS_ACTION_QUARANTINE});
    EXPECT_EQ(moved[0].secondResult, std::uint32_t{AS_RESULT_DONE});
    const std::string encoded = NarrowText(moved[0].encodedPath);
    EXPECT_TRUE(encoded.starts_with(NarrowText(library.Folder().PathW("Quarantine").c_str()) + "\\")) << encoded;
    EXPECT_TRUE(encoded.ends_with(".enc")) << encoded;
    AsBackupInfoW info{};
    EXPECT_EQ(
        library.Entry<ASGetBackupFileInfoW_t>("ASGetBackupFileInfoW")(library.Handle(), moved[0].encodedPath, &info),
        1);
    EXPECT_EQ(WString(info.sourcePath), WString(moved[0].infectedPath));
    // Not into the guarded folder, from which it would be taken again.
    const auto restore = library.Entry<ASRestoreFileW_t>("ASRestoreFileW");
    EXPECT_EQ(restore(library.Handle(), moved[0].encodedPath, library.Folder().PathW("back").c_str()), 1);
    EXPECT_TRUE(ReadBytes(library.Folder().HostPath("back")) == content);

    // Where nothing can be put away the access is refused all the same.
    fs::remove_all(library.Folder().HostPath("Quarantine"));
    WriteBytes(library.Folder().HostPath("Quarantine"), "in the way");
    WriteBytes(File("bad"), content);
    EXPECT_EQ(OpenElsewhere(File("bad")), EPERM);
    EXPECT_EQ(library.Detections().back().secondResult, std::uint32_t{AS_RESULT_FAILED});
    EXPECT_TRUE(fs::exists(File("bad")));
}

TEST_F(OnAccess, AKeptVerdictEndsWithAWrite)
{
    for (const char* ini : {"", "WholeFileSystem=0\n"}) {
        Guard library(Ini(ini));
        const fs::path clean = File(*ini ? "second" : "first");
        WriteBytes(clean, std::string(4096, 'c'));
        Age(clean);
        EXPECT_EQ(OpenElsewhere(clean), 0);
        ASSERT_TRUE(Eventually(Limit, [&] { return library.Status("cached") == 1; })) << library.StatusText();
        const auto scanned = library.Status("scanned");
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(OpenElsewhere(clean), 0);
        WriteBytes(clean, ThreatText);
        EXPECT_EQ(OpenElsewhere(clean), EPERM);
        ASSERT_TRUE(Eventually(Limit, [&] { return library.Status("denied") == 1; }));
        EXPECT_LE(library.Status("scanned"), scanned + 2); // the write and the refused open
    }
}

TEST_F(OnAccess, AReloadEndsEveryKeptVerdict)
{
    Guard library(Ini("WholeFileSystem=0\n"));
    fs::create_directories(File("a/b"));
    WriteBytes(File("a/b/file"), "a new threat");
    Age(File("a/b/file"));
    ASSERT_TRUE(
        Eventually(Limit, [&] { return OpenElsewhere(File("a/b/file")) == 0 && library.Status("cached") == 1; }));
    const auto reload = library.Entry<ASReloadPatternW_t>("ASReloadPatternW");
    WriteBytes(library.Folder().HostPath("ptf$qrv.009"), "broken");
    EXPECT_EQ(reload(library.Handle(), AS_RELOAD_VIRUS, nullptr), 0);
    EXPECT_EQ(OpenElsewhere(File("a/b/file")), 0);
    fs::remove(library.Folder().HostPath("ptf$qrv.009"));
    library.WritePatterns("ptf$qrv.002", "version 200\nhex New-Virus 61 20 6E 65 77 20 74 68 72 65 61 74\n");
    EXPECT_EQ(reload(library.Handle(), AS_RELOAD_VIRUS, nullptr), 1);
    EXPECT_EQ(OpenElsewhere(File("a/b/file")), EPERM);
}

TEST_F(OnAccess, FollowsNewMovedAndDeletedFolders)
{
    ScanLibrary library(Ini("WholeFileSystem=0\n"));
    ASSERT_TRUE(library.Configure(library.Config(AS_DIRECTION_OPEN)));
    fs::create_directories(File("old/deep"));
    ASSERT_TRUE(library.Start());
    WriteBytes(File("old/deep/bad"), ThreatText);
    EXPECT_EQ(OpenElsewhere(File("old/deep/bad")), EPERM);
    fs::rename(File("old"), File("renamed"));
    EXPECT_EQ(OpenElsewhere(File("renamed/deep/bad")), EPERM);
    fs::create_directories(File("new/one/two"));
    WriteBytes(File("new/one/two/bad"), ThreatText);
    EXPECT_TRUE(Eventually(Limit, [&] { return OpenElsewhere(File("new/one/two/bad")) == EPERM; }));
    // Storms of folders that come and go leave the engine at work.
    for (int round = 0; round < 300; ++round) {
        fs::create_directories(File("storm/a/b"));
        WriteBytes(File("storm/a/b/bad"), ThreatText);
        fs::remove_all(File("storm"));
    }
    fs::create_directories(File("last"));
    WriteBytes(File("last/bad"), ThreatText);
    EXPECT_TRUE(Eventually(Limit, [&] { return OpenElsewhere(File("last/bad")) == EPERM; }));
}

TEST_F(OnAccess, LeavesOutWhatIsExcepted)
{
    ScanLibrary library(Ini());
    AsConfigRecord record = library.Config(AS_DIRECTION_OPEN);
    record.extractSizeLimit = 1000;
    ASSERT_TRUE(library.Configure(record));
    ASSERT_TRUE(library.Start());
    fs::create_directory(File("skip"));
    for (const char* name : {"file", "skip/file", "other"})
        WriteBytes(File(name), ThreatText);
    WriteBytes(File("large"), ThreatText + std::string(2000, ' '));
    EXPECT_EQ(OpenElsewhere(File("file")), EPERM);
    const std::string base = NarrowText(library.Detections().at(0).infectedPath);
    const WString file(base.begin(), base.end());
    const WString folder = file.substr(0, file.size() - 4) + TEXT("SKIP");
    const auto exceptFile = library.Entry<ASSetExceptionPathW_t>("ASSetExceptionFilePathW");
    const auto exceptFolder = library.Entry<ASSetExceptionPathW_t>("ASSetExceptionFolderPathW");
    EXPECT_EQ(exceptFile(library.Handle(), file.c_str()), 1);
    EXPECT_EQ(exceptFolder(library.Handle(), folder.c_str()), 1);
    EXPECT_EQ(OpenElsewhere(File("file")), 0);
    EXPECT_EQ(OpenElsewhere(File("skip/file")), 0);
    EXPECT_EQ(OpenElsewhere(File("large")), 0);
    EXPECT_EQ(OpenElsewhere(File("other")), EPERM);
    EXPECT_EQ(exceptFile(library.Handle(), nullptr), 1);
    EXPECT_EQ(OpenElsewhere(File("file")), EPERM);
    EXPECT_TRUE(Eventually(Limit, [&] { return library.Status("tooLarge") == 1 && library.Status("excluded") >= 2; }));
}

// The kernel is made to give the same number again.
TEST_F(OnAccess, AnExclusionEndsWithItsProcess)
{
    Guard library(Ini());
    WriteBytes(File("bad"), ThreatText);
    const auto exclude = library.Entry<ASAddRemoveExceptionProcess_t>("ASAddRemoveExceptionProcess");
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t excluded = Fork([&] {
        char byte;
        return read(go[0], &byte, 1) == 1 ? TryOpen(File("bad")) : 99;
    });
    ASSERT_EQ(exclude(library.Handle(), static_cast<std::uint32_t>(excluded), 1), 1);
    ASSERT_EQ(write(go[1], "x", 1), 1);
    EXPECT_EQ(ExitOf(excluded), 0);
    EXPECT_EQ(exclude(library.Handle(), static_cast<std::uint32_t>(excluded), 1), 0); // it has ended
    clone_args again{};
    again.exit_signal = SIGCHLD;
    again.set_tid = reinterpret_cast<std::uintptr_t>(&excluded);
    again.set_tid_size = 1;
    const auto reused = static_cast<pid_t>(syscall(SYS_clone3, &again, sizeof(again)));
    if (reused == 0)
        _exit(TryOpen(File("bad")));
    if (reused < 0)
        GTEST_SKIP() << "a number cannot be chosen, or another process has it already";
    ASSERT_EQ(reused, excluded);
    EXPECT_EQ(ExitOf(reused), EPERM);
    EXPECT_EQ(exclude(library.Handle(), static_cast<std::uint32_t>(excluded), 0), 1); // still in the list
}

TEST_F(OnAccess, TheWatchdogAnswersForACallbackThatHangs)
{
    Guard library(Ini("[Engine]\nWorkers=1\nAnswerTimeout=200\nLateAnswer=allow\n"));
    WriteBytes(File("bad"), ThreatText);
    WriteBytes(File("good"), "harmless");
    library.HoldCallbacks(true);
    EXPECT_EQ(OpenElsewhere(File("bad")), EPERM); // the verdict was there, so the policy does not matter
    EXPECT_EQ(OpenElsewhere(File("good")), 0);    // no worker is free
    ASSERT_TRUE(Eventually(Limit, [&] { return library.Status("late") == 2; })) << library.StatusText();
    // This process is answered at once, although all workers are busy.
    EXPECT_EQ(TryOpen(File("good")), 0);
    library.HoldCallbacks(false);
    EXPECT_EQ(library.Detections().at(0).denied, 1u);
    EXPECT_TRUE(
        Eventually(Limit, [&] { return OpenElsewhere(File("bad")) == EPERM && library.Detections().size() >= 2; }));
}

TEST_F(OnAccess, ALateScanIsAnsweredByPolicy)
{
    Guard library(Ini("[Engine]\nAnswerTimeout=10\nLateAnswer=deny\n"));
    WriteBytes(File("huge"), "harmless");
    fs::resize_file(File("huge"), 8ull << 30); // a hole: no memory, much to read
    EXPECT_EQ(OpenElsewhere(File("huge")), EPERM);
    EXPECT_TRUE(Eventually(Limit, [&] { return library.Status("late") == 1; }));
    fs::resize_file(File("huge"), 10); // and the scan comes to its end
}

TEST_F(OnAccess, StopReleasesOpenersAndSoDoesTheDeathOfTheEngine)
{
    {
        Guard library(Ini("[Engine]\nWorkers=1\nAnswerTimeout=600000\n"));
        WriteBytes(File("bad"), ThreatText);
        WriteBytes(File("good"), "harmless");
        library.HoldCallbacks(true);
        const pid_t refused = Fork([&] { return TryOpen(File("bad")); });
        ASSERT_TRUE(Eventually(Limit, [&] { return library.Detections().size() == 1; }));
        const pid_t waiting = Fork([&] { return TryOpen(File("good")); });
        std::thread stopper([&] { EXPECT_TRUE(library.Stop()); });
        EXPECT_EQ(ExitOf(refused), EPERM);
        EXPECT_EQ(ExitOf(waiting), 0);
        library.HoldCallbacks(false);
        stopper.join();
    }
    Child engine("guard_until_killed", {Ini("[Engine]\nAnswerTimeout=600000\n")});
    ASSERT_EQ(engine.ReadLine(Limit), "guarding");
    const pid_t opener = Fork([&] { return TryOpen(File("bad")); });
    ASSERT_EQ(engine.ReadLine(Limit), "held");
    EXPECT_EQ(waitpid(opener, nullptr, WNOHANG), 0);
    engine.Kill();
    EXPECT_EQ(ExitOf(opener), 0);
}

TEST_F(OnAccess, WithoutThePrivilegeDetectsAfterWriteAndSaysSo)
{
    Child engine("guard_unprivileged", {Ini(), File("").native()});
    EXPECT_EQ(engine.Wait(2 * Limit), 0);
}
