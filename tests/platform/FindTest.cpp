#include "tests/platform/Files.h"

#include <algorithm>
#ifndef _WIN32
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Wildcard.h"
#include <unistd.h>
#endif

using namespace vlt::test;

namespace
{

using Names = std::vector<std::string>;

Names Find(const WString& pattern)
{
    Names names;
    WIN32_FIND_DATAW data;
    const vlt::FindHandle find(FindFirstFileW(pattern.c_str(), &data));
    if (!find)
        return names;
    do {
        names.push_back(vlt::ToNarrow(data.cFileName, CP_UTF8));
    } while (FindNextFileW(find.Get(), &data));
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
    std::sort(names.begin(), names.end());
    return names;
}

TEST(FindTest, FindsByPatternIgnoringCase)
{
    const TempFolder folder;
    for (const char* name : {"a.txt", "B.TXT", "c.dat", "noext"})
        WriteBytes(folder.HostPath(name), "x");
    ASSERT_TRUE(CreateDirectoryW(folder.PathW("dir.txt").c_str(), nullptr));
    const Names all = {".", "..", "B.TXT", "a.txt", "c.dat", "dir.txt", "noext"};
    EXPECT_EQ(Find(folder.PathW("*")), all);
    EXPECT_EQ(Find(folder.PathW("*.*")), all);
    EXPECT_EQ(Find(folder.PathW("*.txt")), (Names{"B.TXT", "a.txt", "dir.txt"}));
    EXPECT_EQ(Find(folder.PathW("?.TXT")), (Names{"B.TXT", "a.txt"}));
    EXPECT_EQ(Find(folder.PathW("C.DAT")), (Names{"c.dat"}));
    EXPECT_EQ(Find(folder.PathW("*.none")), Names());
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Find(folder.PathW("none\\*")), Names());
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Find(folder.PathW() + TEXT("\\")), Names());
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(FindTest, TellsSizeAttributesAndTime)
{
    const TempFolder folder;
    WriteBytes(folder.HostPath("f"), "12345");
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    WIN32_FIND_DATAA data;
    const HANDLE find = FindFirstFileA(vlt::ToNarrow(folder.PathW("f")).c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_FAILS(FindNextFileA(find, &data), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(find));
#ifndef _WIN32 // elsewhere a stale find handle is a dangling pointer
    EXPECT_FAILS(FindClose(find), ERROR_INVALID_HANDLE);
#endif
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_EQ(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
    const auto ticks = [](const FILETIME& t) { return (ULONGLONG{t.dwHighDateTime} << 32) | t.dwLowDateTime; };
    constexpr ULONGLONG kMinute = 600'000'000;
    EXPECT_LT(ticks(now) - ticks(data.ftLastWriteTime) + kMinute, 2 * kMinute);
}

#ifndef _WIN32
TEST(FindTest, WildcardsAsInWindows)
{
    using namespace vlt::posix;
    struct Case {
        const char16_t* pattern;
        const char16_t* name;
        bool matches;
    };
    const Case cases[] = {
        {u"*.rb?", u"y.rb", true},    {u"*.rb?", u"y.rbx", true},
        {u"*.rb?", u"y.rbxy", false}, {u"a??", u"a", true},
        {u"a??", u"abc", true},       {u"a??", u"abcd", false},
        {u"?.txt", u".txt", true},    {u"*.", u"noext", true},
        {u"*.", u"a.b", false},       {u"a.*", u"a", true},
        {u"a*b*c", u"axxbyyc", true}, {u"a*b*c", u"axxbyy", false},
        {u"*.upg", u"x.upg2", false}, {u"ptf$qrv.*", u"PTF$QRV.123", true},
        {u"**", u"", true},           {u"*x*", u"aaa", false},
        {u"a", u"A", true},           {u"*.txt", u"a.b.TXT", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MatchesPattern(CompilePattern(c.pattern), FoldCase(c.name)), c.matches)
            << Utf8FromUtf16(c.pattern) << " on " << Utf8FromUtf16(c.name);
    // Many stars against a long name must not take for ever.
    EXPECT_FALSE(MatchesPattern(CompilePattern(u"*a*a*a*a*a*a*a*a*a*a*b"), std::u16string(250, u'a')));
}

TEST(FindTest, ALinkToAFolderShowsThatItIsOne)
{
    const TempFolder folder;
    ASSERT_EQ(symlink("..", folder.HostPath("up").c_str()), 0);
    WIN32_FIND_DATAW data;
    const vlt::FindHandle find(FindFirstFileW(folder.PathW("up").c_str(), &data));
    ASSERT_TRUE(find);
    EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
}
#endif

} // namespace
