// Moves that wait for the next start of the system.
#include "platform/posix/file/PendingMoves.h"
#include "platform/posix/core/MachineRoot.h"
#include "tests/platform/RegistryTest.h"
#include "tests/platform/ServiceTest.h"
#include <cstdlib>

using namespace vlt;
using namespace vlt::test;

namespace
{

constexpr WCHAR kValue[] = TEXT("PendingFileRenameOperations");

RegKey ListKey()
{
    return Create(HKEY_LOCAL_MACHINE, TEXT("SYSTEM\\CurrentControlSet\\Control\\Session Manager"),
                  KEY_READ | KEY_WRITE);
}

class NextBoot : public testing::Test
{
protected:
    NextBoot() { Boot("first"); }

    void Boot(const char* id)
    {
        WriteBytes(m_id, id);
        setenv("VLT_BOOT_ID", m_id.c_str(), 1);
    }
    void File(const char* name, const char* content) { WriteBytes(m_folder.HostPath(name), content); }
    std::string Content(const char* name) { return ReadBytes(m_folder.HostPath(name)); }
    bool Move(const char* from, const char* to, DWORD flags = MOVEFILE_REPLACE_EXISTING)
    {
        const std::string target = to ? ToNarrow(m_folder.PathW(to)) : "";
        return MoveFileExA(ToNarrow(m_folder.PathW(from)).c_str(), to ? target.c_str() : nullptr,
                           flags | MOVEFILE_DELAY_UNTIL_REBOOT) != FALSE;
    }
    // Lines of the event log that report a failed move.
    static std::size_t Reports()
    {
        const std::string log = ReadBytes(posix::MachineFolder("eventlog") + "/application.jsonl");
        std::size_t count = 0;
        for (std::size_t at = log.find("Session Manager"); at != log.npos; at = log.find("Session Manager", at + 1))
            ++count;
        return count;
    }
    static std::string List() { return Get(ListKey().Get(), kValue); }

    TempFolder m_folder;
    std::string m_id = m_folder.HostPath("boot").string();
};

TEST_F(NextBoot, CarriesTheListOutInOrderAndOnce)
{
    for (const char* name : {"new", "old", "spare", "doomed", "fixed", "clash"})
        File(name, name);
    std::filesystem::permissions(m_folder.HostPath("old"), std::filesystem::perms::owner_read);
    EXPECT_TRUE(Move("old", "kept", 0));
    EXPECT_TRUE(Move("new", "old"));
    EXPECT_TRUE(Move("gone", "fixed"));
    EXPECT_TRUE(Move("doomed", nullptr));
    EXPECT_TRUE(Move("clash", "fixed", 0)); // fails: the target is there
    EXPECT_TRUE(Move("spare", "fixed"));
    EXPECT_FAILS(Move("spare", "x", MOVEFILE_COPY_ALLOWED), ERROR_INVALID_PARAMETER);
    posix::CarryOutPendingMoves();
    EXPECT_EQ("new", Content("new")) << "still the same boot";

    Boot("second");
    posix::CarryOutPendingMoves();
    EXPECT_EQ("old", Content("kept"));
    EXPECT_EQ("new", Content("old"));
    EXPECT_EQ("spare", Content("fixed"));
    EXPECT_EQ("clash", Content("clash"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.HostPath("doomed")));
    EXPECT_EQ(1u, Reports());
    EXPECT_EQ("<2>", List());

    File("new", "newer");
    EXPECT_TRUE(Move("new", "old"));
    posix::CarryOutPendingMoves();
    EXPECT_EQ("new", Content("old")) << "waits for the third boot";
}

// The state that a starter leaves which was killed between a move and counting it.
TEST_F(NextBoot, GoesOnWhereAKilledStarterWas)
{
    File("a", "first");
    File("b", "second");
    EXPECT_TRUE(Move("a", "target"));
    EXPECT_TRUE(Move("b", "a"));
    ASSERT_TRUE(MoveFileW(m_folder.PathW("a").c_str(), m_folder.PathW("target").c_str()));
    Boot("second");
    File("c", "third");
    EXPECT_TRUE(Move("c", "a")) << "makes up first for what is due";
    EXPECT_EQ("first", Content("target"));
    EXPECT_EQ("second", Content("a"));
    posix::CarryOutPendingMoves();
    EXPECT_EQ("second", Content("a"));
    EXPECT_EQ(0u, Reports());
}

TEST_F(NextBoot, DamagedListDoesNoHarm)
{
    File("a", "a");
    EXPECT_TRUE(Move("a", "a/b"));
    const std::string whole = List();
    for (std::size_t size = 0; size <= whole.size(); size += 3) {
        Set(ListKey().Get(), kValue, whole.substr(0, size), size % 2 == 0 ? REG_MULTI_SZ : REG_BINARY);
        Boot(size % 2 == 0 ? "second" : "third");
        posix::CarryOutPendingMoves();
        EXPECT_EQ("<2>a", List() + Content("a")) << size;
    }
}

TEST_F(NextBoot, StartersAtTheSameTimeDoItOnce)
{
    for (int i = 0; i < 50; ++i) {
        File("f", "x");
        EXPECT_TRUE(Move("f", "boot", 0)); // fails, hence a report of each
    }
    WriteBytes(m_folder.HostPath("other"), "second");
    std::vector<Child> children;
    for (int i = 0; i < 4; ++i)
        children.emplace_back("bootStarter", std::vector<std::string>(),
                              Child::Environment{{"VLT_BOOT_ID", m_folder.HostPath("other").string()}});
    for (Child& child : children)
        EXPECT_EQ(0, child.Wait(60000));
    EXPECT_EQ(50u, Reports());
    EXPECT_EQ("<2>", List());
}

using BootService = ServiceTest;

TEST_F(BootService, FindsTheNewFilesInPlace)
{
    const TempFolder folder;
    WriteBytes(folder.HostPath("new"), "new");
    ASSERT_TRUE(MoveFileExW(folder.PathW("new").c_str(), folder.PathW("program").c_str(), MOVEFILE_DELAY_UNTIL_REBOOT));
    WriteBytes(folder.HostPath("boot"), "another boot\n");
    Install(ProgramCommand("bootService"));
    Child child("bootService", {folder.HostPath("program").string()},
                {{"VLT_SERVICE", ToNarrow(m_name)}, {"VLT_BOOT_ID", folder.HostPath("boot").string()}});
    EXPECT_EQ(0, child.Wait(30000));
    EXPECT_EQ("new", ReadBytes(folder.HostPath("program")));
}

std::string g_expected;
bool g_found = false;

} // namespace

VLT_CHILD(bootStarter)
{
    posix::CarryOutPendingMoves();
    return 0;
}

VLT_CHILD(bootService)
{
    g_expected = args[0];
    WCHAR name[] = TEXT("x");
    const SERVICE_TABLE_ENTRYW table[] = {{name, [](DWORD, LPWSTR*) { g_found = ReadBytes(g_expected) == "new"; }},
                                          {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) && g_found ? 0 : 1;
}
