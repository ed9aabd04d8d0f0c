// Private profile files: reading, writing, and many writers at once.
#include "tests/platform/Files.h"

#ifndef _WIN32
#include "tests/fuzz/Bodies.h"
#include <random>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#endif

using namespace vlt::test;

namespace
{

class ProfileTest : public testing::Test
{
protected:
    std::string Get(const char* section, const char* key, const char* fallback = "(none)", DWORD size = 256)
    {
        char text[256] = {};
        m_length = GetPrivateProfileStringA(section, key, fallback, text, size, m_narrow.c_str());
        return text;
    }
    BOOL Write(const char* section, const char* key, const char* value)
    {
        return WritePrivateProfileStringA(section, key, value, m_narrow.c_str());
    }
    std::string Bytes() { return ReadBytes(m_folder.HostPath("test.ini")); }
    void SetBytes(std::string_view bytes) { WriteBytes(m_folder.HostPath("test.ini"), bytes); }

    TempFolder m_folder;
    const WString m_path = m_folder.PathW("test.ini");
    const std::string m_narrow = vlt::ToNarrow(m_path);
    DWORD m_length = 0;
};

TEST_F(ProfileTest, ReadsValues)
{
    SetBytes("; comment\r\n[Info]\r\nPattern=123\r\n Key with blanks \t=  some text \r\nquoted=\" a \"\r\n"
             "half=\"x\r\nempty=\r\nequals=a=b\r\n[debug]\nhot_switch = 1\n");
    EXPECT_EQ(Get("Info", "Pattern"), "123");
    EXPECT_EQ(m_length, 3u);
    EXPECT_EQ(Get("INFO", "PATTERN"), "123");
    EXPECT_EQ(Get("Info", "Key with blanks"), "some text");
    EXPECT_EQ(Get("Info", "quoted"), " a ");
    EXPECT_EQ(Get("Info", "half"), "\"x");
    EXPECT_EQ(Get("Info", "equals"), "a=b");
    EXPECT_EQ(Get("Info", "empty"), "");
    EXPECT_EQ(m_length, 0u);
    EXPECT_EQ(Get("debug", "hot_switch"), "1");
    EXPECT_EQ(Get("Info", "hot_switch"), "(none)");
    EXPECT_EQ(Get("none", "Pattern", "x  "), "x"); // a default loses its trailing blanks
}

TEST_F(ProfileTest, CutsWhatDoesNotFitAndReadsNumbers)
{
    SetBytes("[s]\r\nk=abcdef\r\na=42\r\nb=-5\r\nc=7x\r\ne=\r\nf=\"12\"\r\n");
    EXPECT_EQ(Get("s", "k", "", 4), "abc");
    EXPECT_EQ(m_length, 3u);
    EXPECT_EQ(Get("s", "k", "", 7), "abcdef");
    EXPECT_EQ(Get("s", "none", "default", 4), "def");
    EXPECT_EQ(Get("s", "k", "", 1), "");
    const std::pair<const char*, UINT> numbers[] = {
        {"a", 42}, {"b", static_cast<UINT>(-5)}, {"c", 7}, {"k", 0}, {"e", 99}, {"f", 12}, {"none", 99}};
    for (const auto& [key, expected] : numbers)
        EXPECT_EQ(GetPrivateProfileIntA("s", key, 99, m_narrow.c_str()), expected) << key;
    EXPECT_EQ(GetPrivateProfileIntW(TEXT("S"), TEXT("A"), 1, m_path.c_str()), 42u);
}

TEST_F(ProfileTest, WritesAndKeepsWhatItDoesNotKnow)
{
    EXPECT_TRUE(Write("Info", "SpyWare", "1"));
    EXPECT_EQ(Bytes(), "[Info]\r\nSpyWare=1\r\n");
    EXPECT_TRUE(Write("info", "Spyware", "22"));
    EXPECT_EQ(Bytes(), "[Info]\r\nSpyWare=22\r\n"); // the name as it was
    EXPECT_TRUE(Write("Other", "k", ""));
    EXPECT_EQ(Bytes(), "[Info]\r\nSpyWare=22\r\n[Other]\r\nk=\r\n");

    SetBytes("; head\r\n[a]\r\nk=1\r\n; in a\r\n\r\n[b]\r\nk=2\r\n");
    EXPECT_TRUE(Write("a", "new", "3"));
#ifdef _WIN32 // Wine drops blank lines
    EXPECT_EQ(Bytes(), "; head\r\n[a]\r\nk=1\r\n; in a\r\nnew=3\r\n[b]\r\nk=2\r\n");
#else
    EXPECT_EQ(Bytes(), "; head\r\n[a]\r\nk=1\r\n; in a\r\nnew=3\r\n\r\n[b]\r\nk=2\r\n");
#endif
    EXPECT_TRUE(Write("a", "k", nullptr));
    EXPECT_EQ(Get("a", "k"), "(none)");
    EXPECT_TRUE(Write("a", "none", nullptr));
    EXPECT_TRUE(Write("A", nullptr, nullptr));
    EXPECT_EQ(Get("a", "new"), "(none)");
    EXPECT_EQ(Get("b", "k"), "2");
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("b"), TEXT("k"), TEXT("wide"), m_path.c_str()));
    EXPECT_EQ(Get("b", "k"), "wide");
    EXPECT_FAILS(WritePrivateProfileStringA("s", "k", "v", vlt::ToNarrow(m_folder.PathW("no\\x.ini")).c_str()),
                 ERROR_PATH_NOT_FOUND);
}

TEST_F(ProfileTest, KeepsFilesInUtf16)
{
    const std::u16string text = u"\xFEFF[s]\r\nk=gr\u00FC\u00DF\r\n";
    SetBytes(std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
    WCHAR value[16] = {};
    GetPrivateProfileStringW(TEXT("s"), TEXT("k"), TEXT(""), value, 16, m_path.c_str());
    EXPECT_EQ(WString(value), TEXT("gr\u00FC\u00DF"));
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("s"), TEXT("k"), TEXT("\u20AC"), m_path.c_str()));
    const std::u16string after = u"\xFEFF[s]\r\nk=\u20AC\r\n";
    EXPECT_EQ(Bytes(), std::string(reinterpret_cast<const char*>(after.data()), after.size() * 2));
}

#ifndef _WIN32 // Wine reads the file and writes it back without a lock between processes
// Writes args[2] keys of its own, args[1]0 to args[1]N, for ever when N is 0.
VLT_CHILD(profile_writer)
{
    const unsigned count = static_cast<unsigned>(std::stoul(args[2]));
    std::puts("ready");
    for (unsigned i = 0; count == 0 || i < count; ++i) {
        const std::string key = args[1] + std::to_string(count == 0 ? i % 20 : i);
        if (!WritePrivateProfileStringA("keys", key.c_str(), std::to_string(i).c_str(), args[0].c_str()))
            return 1;
    }
    return 0;
}

TEST_F(ProfileTest, WritersLoseNothingOfEachOther)
{
    constexpr int kKeys = 60;
    std::vector<Child> children;
    for (const char* writer : {"p0_", "p1_", "p2_"})
        children.emplace_back("profile_writer", std::vector<std::string>{m_narrow, writer, std::to_string(kKeys)});
    std::vector<std::thread> threads;
    for (const std::string writer : {"t0_", "t1_", "t2_"}) {
        threads.emplace_back([=, this] {
            for (int i = 0; i < kKeys; ++i)
                EXPECT_TRUE(Write("keys", (writer + std::to_string(i)).c_str(), std::to_string(i).c_str()));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (Child& child : children)
        EXPECT_EQ(child.Wait(60000), 0);
    for (const std::string writer : {"p0_", "p1_", "p2_", "t0_", "t1_", "t2_"}) {
        for (int i = 0; i < kKeys; ++i)
            EXPECT_EQ(Get("keys", (writer + std::to_string(i)).c_str()), std::to_string(i)) << writer;
    }
}

TEST_F(ProfileTest, KilledWriterLeavesAWholeFileAndNoLock)
{
    std::string big = "[fixed]\r\n";
    for (int i = 0; i < 2000; ++i)
        big += "key" + std::to_string(i) + "=" + std::string(20, 'v') + "\r\n";
    SetBytes(big + "[keys]\r\n");
    std::mt19937 random(7);
    for (int round = 0; round < 15; ++round) {
        Child child("profile_writer", {m_narrow, "k", "0"});
        ASSERT_EQ(child.ReadLine(), "ready");
        const std::string before = Bytes();
        ASSERT_TRUE(vlt::test::Eventually(20000, [&] { return Bytes() != before; }));
        for (std::size_t spin = random() % 4000; spin > 0; --spin)
            getppid(); // dies at another place each time
        child.Kill();
        child.Wait(20000);
        const std::string after = Bytes();
        EXPECT_EQ(after.compare(0, big.size(), big), 0) << round;
        EXPECT_EQ(after.substr(after.size() - 2), "\r\n") << round;
        EXPECT_TRUE(Write("mine", "round", std::to_string(round).c_str()));
    }
    EXPECT_EQ(Get("mine", "round"), "14");
}

TEST_F(ProfileTest, ValueCannotForgeLines)
{
    EXPECT_TRUE(Write("Info", "LastInfectFile", "a\r\n[debug]\r\nlog_path=x"));
    EXPECT_EQ(Get("debug", "log_path"), "(none)");
    EXPECT_EQ(Get("Info", "LastInfectFile"), "a  [debug]  log_path=x");
}

TEST_F(ProfileTest, BareNameIsOfTheSystemFolder)
{
    EXPECT_TRUE(WritePrivateProfileStringW(u"rename", u"a", u"b", u"wininit.ini"));
    EXPECT_NE(GetFileAttributesW(u"C:\\windows\\WININIT.INI"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(u"wininit.ini"), INVALID_FILE_ATTRIBUTES);
}

TEST_F(ProfileTest, WhatIsNoFileOrIsProtected)
{
    ASSERT_EQ(mkfifo(m_folder.HostPath("test.ini").c_str(), 0666), 0);
    EXPECT_EQ(Get("s", "k"), "(none)");
    EXPECT_FAILS(Write("s", "k", "v"), ERROR_ACCESS_DENIED);
    ASSERT_TRUE(DeleteFileW(m_path.c_str()));
    SetBytes("[s]\r\nk=1\r\n");
    ASSERT_TRUE(SetFileAttributesW(m_path.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_FAILS(Write("s", "k", "2"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(Get("s", "k"), "1");
    // A link stays a link, and what it leads to is what changes.
    WriteBytes(m_folder.HostPath("real"), "");
    ASSERT_EQ(symlink("real", m_folder.HostPath("link.ini").c_str()), 0);
    EXPECT_TRUE(WritePrivateProfileStringW(u"s", u"k", u"v", m_folder.PathW("link.ini").c_str()));
    EXPECT_EQ(ReadBytes(m_folder.HostPath("real")), "[s]\r\nk=v\r\n");
}

TEST_F(ProfileTest, AnyBytesAreAFile)
{
    std::mt19937 random(11);
    constexpr std::string_view likely("[]=;\"' \t\r\n\0ak\xFF\xFE\xEF\xBB\xBF\xC3", 20);
    for (int i = 0; i < 20000; ++i) {
        std::string bytes = i % 10 == 0 ? std::string("\0\0\0\xFF\xFE", 5) : std::string();
        for (std::size_t length = random() % 80; bytes.size() < length;)
            bytes += random() % 6 == 0 ? static_cast<char>(random() % 256) : likely[random() % likely.size()];
        ASSERT_NO_THROW(ProfileBody({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}))
            << testing::PrintToString(bytes);
    }
}
#endif

} // namespace
