// The test support is what every other test trusts, so its own promises are tested first.
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

using namespace vlt::test;

VLT_CHILD(echo)
{
    for (const std::string& argument : args)
        std::cout << argument << '\n';
    for (std::string line; std::getline(std::cin, line);)
        std::cout << "got " << line << '\n';
    return 7;
}

VLT_CHILD(sleeper)
{
    std::puts("ready");
    std::this_thread::sleep_for(std::chrono::hours(1));
    return 0;
}

VLT_CHILD(variable)
{
    const char* value = std::getenv(args[0].c_str());
    std::puts(value ? value : "(none)");
    return 0;
}

TEST(ChildTest, TakesArgumentsAndTalksInLines)
{
    const std::vector<std::string> hard{"plain", "", "two words", "quote\"inside", "end\\", "a\\\"b\\\\\"c", "*.?"};
    Child child("echo", hard);
    for (const std::string& argument : hard)
        EXPECT_EQ(child.ReadLine(), argument);
    EXPECT_TRUE(child.WriteLine("hello"));
    EXPECT_EQ(child.ReadLine(), "got hello");
    EXPECT_EQ(child.Wait(0), Child::kStillRunning);
    child.CloseInput();
    EXPECT_EQ(child.Wait(20000), 7);
    EXPECT_EQ(child.Wait(0), 7);
    EXPECT_EQ(child.ReadLine(), "");
}

TEST(ChildTest, KillEndsItWithoutItsCooperation)
{
    Child child("sleeper");
    EXPECT_EQ(child.ReadLine(), "ready");
    EXPECT_EQ(child.ReadLine(50), "") << "nothing more comes";
    child.Kill();
    EXPECT_EQ(child.Wait(20000), 137);
}

TEST(ChildTest, EnvironmentIsInheritedAndReplaced)
{
    Child replaced("variable", {"VLT_TEST_EXTRA"}, {{"VLT_TEST_EXTRA", "a=b"}});
    EXPECT_EQ(replaced.ReadLine(), "a=b");
    Child missing("variable", {"VLT_TEST_EXTRA"});
    EXPECT_EQ(missing.ReadLine(), "(none)");
}

TEST(ChildTest, ReportsWhatCannotBeStarted)
{
    EXPECT_THROW(Child::Program(ProgramFolder() / "no such program"), std::exception);
    Child nameless("there is no such body");
    EXPECT_EQ(nameless.Wait(20000), 126);
}

TEST(TempFolderTest, BothNamesMeanOneFolder)
{
    std::filesystem::path host;
    {
        const TempFolder folder;
        const TempFolder other;
        host = folder.HostPath();
        EXPECT_NE(host, other.HostPath());
        WriteBytes(folder.HostPath("file.bin"), std::string_view("a\0b\r\n", 5));
        EXPECT_EQ(ReadBytes(host / "file.bin"), std::string_view("a\0b\r\n", 5));
        EXPECT_EQ(folder.PathW().compare(0, 3, TEXT("C:\\")), 0);
        EXPECT_EQ(folder.PathW("x/y").substr(folder.PathW().size()), TEXT("\\x\\y"));
    }
    EXPECT_FALSE(std::filesystem::exists(host));
}

TEST(EventuallyTest, SeesAChangeAndGivesUp)
{
    int asked = 0;
    EXPECT_TRUE(Eventually(20000, [&] { return ++asked == 3; }));
    EXPECT_EQ(asked, 3);
    EXPECT_FALSE(Eventually(0, [] { return false; }));
}
