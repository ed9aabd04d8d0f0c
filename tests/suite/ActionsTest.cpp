#include "suite/ArdScan/Actions.h"
#include "tests/support/Support.h"
#include "tools/ptfc/SignatureText.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace vlt::scan;
using namespace vlt::test;

namespace
{

// A file that was opened and found infected, and what is done to it.
struct Infected {
    TempFolder folder;
    CHostFile file;
    Policy policy;
    WString encodedPath;
    CScanner scanner;
    std::unique_ptr<CPatternSet> patterns;

    explicit Infected(const char* content)
    {
        std::string error;
        PatternFiles files;
        files.virus = std::make_shared<const PatternFile>(*ParseSignatures("hex V clean 42 41 44 21\n", error));
        patterns = std::make_unique<CPatternSet>(files, 0);
        policy.renameExtension[1] = TEXT(".VIR");
        policy.moveFolder[0] = folder.PathW("moved");
        WriteBytes(Path("a.exe"), content);
        EXPECT_EQ(file.Open(Path("a.exe")), OpenResult::Opened);
    }
    fs::path Path(const char* name) const { return folder.HostPath(name); }
    bool Do(std::uint32_t action, bool second = false)
    {
        const fs::path path = Path("a.exe");
        const WString name = ToWindows(path);
        const InfectedFile infected{file, path, name, *patterns, policy, scanner};
        return ChangeFile(infected, action, second, Path("Quarantine"), encodedPath);
    }
    std::string Read(const char* name) const { return ReadBytes(Path(name)); }
};

} // namespace

TEST(Actions, TakeTheFileFromItsName)
{
    Infected renamed("1BAD!");
    WriteBytes(renamed.Path("a.exe.VIR"), "older");
    EXPECT_TRUE(renamed.Do(AS_ACTION_RENAME, true));
    EXPECT_EQ(renamed.Read("a.exe.VIR"), "older");
    EXPECT_EQ(renamed.Read("a.exe.1.VIR"), "1BAD!");
    EXPECT_FALSE(renamed.Do(AS_ACTION_RENAME, false)); // no extension was given
    renamed.file.Close();                              // on Windows a name goes with the last handle
    EXPECT_FALSE(fs::exists(renamed.Path("a.exe")));

    Infected moved("2BAD!");
    EXPECT_TRUE(moved.Do(AS_ACTION_MOVE));
    EXPECT_EQ(moved.Read("moved/a.exe"), "2BAD!");
    moved.file.Close();
    EXPECT_FALSE(fs::exists(moved.Path("a.exe")));

    Infected deleted("3BAD!");
    EXPECT_TRUE(deleted.Do(AS_ACTION_DELETE));
    deleted.file.Close();
    EXPECT_FALSE(fs::exists(deleted.Path("a.exe")));

    Infected cleaned("4BAD!5");
    cleaned.policy.backup = {true, false, cleaned.folder.PathW("backup")};
    EXPECT_TRUE(cleaned.Do(AS_ACTION_CLEAN));
    EXPECT_EQ(cleaned.Read("a.exe"), "45");
    EXPECT_EQ(cleaned.Read("backup/a.exe.RB0"), "4BAD!5");
}

TEST(Actions, LeaveWhatHasTakenTheNameMeanwhile)
{
    for (const bool link : {false, true}) {
#ifdef _WIN32
        if (link)
            break;
#endif
        for (const std::uint32_t action :
             {AS_ACTION_QUARANTINE, AS_ACTION_CLEAN, AS_ACTION_DELETE, AS_ACTION_RENAME, AS_ACTION_MOVE}) {
            Infected infected("BAD!");
            infected.policy.renameExtension[0] = TEXT(".VIR");
            fs::rename(infected.Path("a.exe"), infected.Path("hidden"));
            WriteBytes(infected.Path("victim"), "BAD! or not");
            if (link)
                fs::create_symlink("victim", infected.Path("a.exe"));
            else
                fs::rename(infected.Path("victim"), infected.Path("a.exe"));
            EXPECT_FALSE(infected.Do(action)) << action;
            EXPECT_EQ(infected.Read("a.exe"), "BAD! or not") << action;
            EXPECT_EQ(infected.Read("hidden"), "BAD!") << action;
            EXPECT_TRUE(infected.encodedPath.empty());
            EXPECT_FALSE(fs::exists(infected.Path("a.exe.VIR")) || fs::exists(infected.Path("moved/a.exe")));
            EXPECT_TRUE(!fs::exists(infected.Path("Quarantine")) || fs::is_empty(infected.Path("Quarantine")));
        }
    }
}
