// A process that is killed after any system call of a store operation leaves every file in one place
// and every record whole.
#include "tests/unit/QuarantineStore.h"
#include "tools/vlctl/QuarantineStore.h"

#include <map>
#include <set>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>

using namespace vlt;
using namespace vlt::test;

namespace
{

constexpr std::string_view kKept[] = {"first", "second", "third"};

void RunOperation(CQuarantine& store, const std::string& operation, const WString& name)
{
    if (operation == "append") {
        store.RenameEncodeFileW(TEXT("encoded.bin"), TEXT("C:\\d\\new.txt"), TEXT("T"));
    } else if (operation == "update") {
        store.UpdateQuarantineDBW(name.c_str(), 2, TEXT("Other"));
    } else if (operation == "tool") {
        const ctl::QuarantineStore shared(store.Folder());
        ctl::DeleteAnyFile(shared.KeptFile(name));
        shared.Rewrite([&](const QuarantineRecord& record) { return FieldText(record.quarantinedName) != name; });
    } else {
        store.SelectForDeletion(name.c_str());
        store.DeleteQuarantinedW();
    }
}

// Does the call change anything that outlives the process?
bool ChangesFiles(long call)
{
    static const std::set<long> calls = {SYS_open,     SYS_openat, SYS_write,     SYS_pwrite64,  SYS_rename,
                                         SYS_renameat, SYS_unlink, SYS_renameat2, SYS_ftruncate, SYS_unlinkat,
                                         SYS_fsync,    SYS_chmod,  SYS_fchmod,    SYS_close,     SYS_flock};
    return calls.contains(call);
}

bool WaitForStop(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, __WALL) == pid && WIFSTOPPED(status);
}

// Lets the child run its operation and kills it after `calls` file system calls. False when the
// operation ended before.
bool KillAfter(Child& child, int calls)
{
    const auto pid = static_cast<pid_t>(child.Id());
    bool inCall = false;
    long call = 0;
    child.WriteLine("go");
    while (ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr) == 0 && WaitForStop(pid)) {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
            call = static_cast<long>(info.entry.nr);
            inCall = true;
        } else if (inCall && info.op == PTRACE_SYSCALL_INFO_EXIT && ChangesFiles(call) && calls-- == 0) {
            child.Kill();
            return true;
        }
    }
    return false;
}

std::string OperationName(const testing::TestParamInfo<const char*>& parameter)
{
    return parameter.param;
}

class QuarantineCrash : public testing::TestWithParam<const char*>
{
protected:
    // Content of each file in the folder but the store's own -> name.
    static std::multimap<std::string, std::string> Contents(const TempFolder& folder)
    {
        std::multimap<std::string, std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(folder.HostPath()))
            if (const std::string name = entry.path().filename(); name != "QUADB.VDB")
                contents.emplace(ReadBytes(entry.path()), name);
        return contents;
    }

    static void Check(const TempFolder& folder)
    {
        QuarantineStore after(folder.PathW());
        const auto contents = Contents(folder);
        std::map<std::string, std::string> records; // kept name -> source name
        for (const QuarantineRecord& record : after.Records()) {
            const std::string source = ToNarrow(FieldText(record.sourceName));
            EXPECT_EQ(6u, record.type);
            EXPECT_EQ(16u, FieldText(record.date).size());
            EXPECT_TRUE(records.emplace(ToNarrow(FieldText(record.quarantinedName)), source).second);
        }
        const bool deletes = GetParam() == std::string("delete") || GetParam() == std::string("tool");
        for (const std::string_view content : kKept) {
            const bool mayGo = deletes && content == kKept[0];
            ASSERT_LE(contents.count(std::string(content)), 1u);
            const auto file = contents.find(std::string(content));
            if (file == contents.end()) {
                EXPECT_TRUE(mayGo) << content;
            } else {
                EXPECT_TRUE(records.contains(file->second)) << content << " has lost its record";
                EXPECT_EQ(content, records[file->second]);
            }
        }
        EXPECT_EQ(GetParam() == std::string("append") ? 1u : 0u, contents.count("new"));
        EXPECT_FALSE(std::filesystem::exists(folder.HostPath("$VB$.$$$")));
        WriteBytes(folder.HostPath("encoded.bin"), "later");
        EXPECT_EQ(1, after.store.RenameEncodeFileW(TEXT("encoded.bin"), TEXT("C:\\later"), TEXT("T")));
        EXPECT_EQ(records.size() + 1, after.Records().size());
    }
};

} // namespace

VLT_CHILD(storeOperation)
{
    QuarantineStore test(ToWide(args[0]));
    std::puts("ready");
    std::fflush(stdout);
    char line[16];
    static_cast<void>(std::fgets(line, sizeof line, stdin));
    RunOperation(test.store, args[1], ToWide(args[2]));
    _exit(0);
}

TEST_P(QuarantineCrash, KilledAnywhereLosesNothing)
{
    bool killed = true;
    int point = 0;
    for (; killed && !HasFailure(); ++point) {
        SCOPED_TRACE("killed after file system call " + std::to_string(point));
        const TempFolder folder;
        std::string first;
        {
            QuarantineStore before(folder.PathW());
            for (const std::string_view content : kKept) {
                WriteBytes(folder.HostPath("encoded.bin"), content);
                const WString source = TEXT("C:\\d\\") + ToWide(content);
                ASSERT_EQ(1, before.store.RenameEncodeFileW(TEXT("encoded.bin"), source.c_str(), TEXT("T")));
            }
            first = ToNarrow(FieldText(before.Records()[0].quarantinedName));
        }
        if (GetParam() == std::string("append"))
            WriteBytes(folder.HostPath("encoded.bin"), "new");
        Child child("storeOperation", {ToNarrow(folder.PathW()), GetParam(), first});
        ASSERT_EQ("ready", child.ReadLine());
        if (ptrace(PTRACE_SEIZE, static_cast<pid_t>(child.Id()), nullptr, PTRACE_O_TRACESYSGOOD) != 0)
            GTEST_SKIP() << "needs the right to trace a child";
        ASSERT_EQ(0, ptrace(PTRACE_INTERRUPT, static_cast<pid_t>(child.Id()), nullptr, nullptr));
        ASSERT_TRUE(WaitForStop(static_cast<pid_t>(child.Id())));
        killed = KillAfter(child, point);
        EXPECT_EQ(killed ? 137 : 0, child.Wait(20000));
        Check(folder);
    }
    EXPECT_GT(point, 5);
}

INSTANTIATE_TEST_SUITE_P(Store, QuarantineCrash, testing::Values("append", "update", "delete", "tool"), OperationName);
