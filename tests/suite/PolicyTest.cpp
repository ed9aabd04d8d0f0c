#include "suite/ArdScan/Policy.h"
#include "suite/ArdScan/Ini.h"
#include "suite/Common/HostPath.h"

#include <gtest/gtest.h>

#include <random>

using namespace vlt::scan;

TEST(ExtensionList, TakesEveryFormOfTheSettings)
{
    for (const WCHAR* list : {TEXT(".EXE.COM"), TEXT("exe;com"), TEXT("\"EXE\";\"COM\""), TEXT(".{*.EXE.COM.WBS")}) {
        const CExtensionList extensions{list};
        EXPECT_TRUE(extensions.Contains(TEXT("C:\\a.b\\x.exe")));
        EXPECT_TRUE(extensions.Contains(TEXT("x.y.Com")));
        EXPECT_FALSE(extensions.Contains(TEXT("C:\\a.exe\\x")));
        EXPECT_FALSE(extensions.Contains(TEXT("x.ex")));
    }
    EXPECT_TRUE(CExtensionList(TEXT("*")).Contains(TEXT("x")));
    EXPECT_FALSE(CExtensionList(TEXT("")).Contains(TEXT("x.exe")));

    AsConfigRecord record{};
    for (std::size_t i = 0; i < 648; i += 4) { // the field is full and has no end
        const WCHAR part[] = TEXT(".ABC");
        std::copy_n(part, 4, record.extensionList + i);
    }
    record.fixed3964 = 0x00580058; // what lies behind must not be taken for text
    EXPECT_TRUE(Policy::FromRecord(record).extensions.Contains(TEXT("x.abc")));
    EXPECT_FALSE(Policy::FromRecord(record).extensions.Contains(TEXT("x.abcxx")));
}

TEST(ExceptionList, ComparesWholePathsWithoutCase)
{
    CExceptionList list;
    list.AddFile(TEXT("C:\\Data\\One.txt"));
    list.AddFolder(TEXT("c:\\\\Skip\\"));
    EXPECT_TRUE(list.Contains(TEXT("c:\\data\\ONE.TXT")));
    EXPECT_FALSE(list.Contains(TEXT("c:\\data\\one.txt2")));
    EXPECT_TRUE(list.Contains(TEXT("C:\\skip\\deep\\x")));
    EXPECT_FALSE(list.Contains(TEXT("C:\\skipped\\x")));
    list.ClearFolders();
    EXPECT_FALSE(list.Contains(TEXT("C:\\skip\\deep\\x")));
}

TEST(Ini, TakesItsKeysAndSurvivesAnyBytes)
{
    const EngineSettings settings =
        ReadEngineSettings("\xEF\xBB\xBF; comment\r\n[GUARD]\r\nFolder10 = \"/b c\"\r\nfolder2=Z:\\a\r\nFolderX=/no\r\n"
                           "WholeFileSystem=0\r\n[Engine]\r\nWorkers=9999\r\nAnswerTimeout=250\nLateAnswer=DENY\n"
                           "StatusFile=/x\n[Other]\nWorkers=2");
    EXPECT_EQ(settings.folders, (std::vector<std::string>{"Z:\\a", "/b c"}));
    EXPECT_EQ(settings.mounts, MountPolicy::Never);
    EXPECT_EQ(settings.workers, EngineSettings().workers);
    EXPECT_EQ(settings.answerTimeout, 250u);
    EXPECT_EQ(settings.late, LatePolicy::Deny);
    EXPECT_EQ(settings.statusFile, "/x");

    std::mt19937 random(3);
    const std::string alphabet = std::string("[]=;\"\n\r \0", 9) + "GuardEngineFolder0Workers1\xFF";
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (auto n = random() % 200; n > 0; --n)
            text += alphabet[random() % alphabet.size()];
        const EngineSettings any = ReadEngineSettings(text);
        EXPECT_GE(any.workers, 1u);
        EXPECT_LE(any.workers, 64u);
    }
}
