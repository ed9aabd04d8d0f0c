// Replacements of files in use: staged, recorded, handed to the system and carried out at its next start.
#include "ARDCommon/AuDelayCopy.h"

#include "platform/Unique.h"
#include "tests/unit/ApplicationFolder.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr const WCHAR* kSession = TEXT("SYSTEM\\CurrentControlSet\\Control\\Session Manager");
constexpr const WCHAR* kList = TEXT("PendingFileRenameOperations");

class AuDelayCopy : public testing::Test
{
protected:
    AuDelayCopy() { vlt::GetRegBytes(HKEY_LOCAL_MACHINE, kSession, kList, m_before); }
    ~AuDelayCopy() override
    {
        vlt::RegKey key;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSession, 0, KEY_SET_VALUE, key.Receive());
        if (m_before.empty())
            RegDeleteValueW(key.Get(), kList);
        else
            RegSetValueExW(key.Get(), kList, 0, REG_MULTI_SZ, m_before.data(), static_cast<DWORD>(m_before.size()));
    }

    std::string Path(const std::string& name) const { return m_folder.Path(name); }
    std::string Ini() const { return m_folder.Read("ardentis.ini"); }
    void SetIni(const std::string& text) const { m_folder.Write("ardentis.ini", text); }
    static std::string Pair(int index, const std::string& source, const std::string& destination)
    {
        const std::string n = std::to_string(index);
        return "SrcFile" + n + '=' + source + "\r\nDstFile" + n + '=' + destination + "\r\n";
    }

    // What was added to the system's list, with | for each terminator.
    std::string Listed() const
    {
        std::vector<BYTE> data;
        vlt::GetRegBytes(HKEY_LOCAL_MACHINE, kSession, kList, data);
        std::string text;
        for (std::size_t at = m_before.empty() ? 0 : m_before.size() - sizeof(WCHAR); at + 1 < data.size();
             at += sizeof(WCHAR))
            text += data[at] != 0 ? static_cast<char>(data[at]) : '|';
        return text;
    }

    vlt::test::ApplicationFolder m_folder;
    std::vector<BYTE> m_before;
};

TEST_F(AuDelayCopy, StagesAndRecords)
{
    fs::create_directory(m_folder.HostPath("x"));
    m_folder.Write("a.dll", "first");
    m_folder.Write("x/a.dll", "second");
    EXPECT_TRUE(CAuDelayCopy::Schedule({{Path("a.dll"), "C:\\a"}, {Path("x\\a.dll"), "C:\\b"}}));
    EXPECT_EQ(m_folder.Read("NEW/1a.dll") + m_folder.Read("NEW/2a.dll"), "firstsecond");
    const std::string pairs = Pair(0, Path("NEW\\1a.dll"), "C:\\a") + Pair(1, Path("NEW\\2a.dll"), "C:\\b");
    EXPECT_EQ(Ini(), "[AuArd]\r\n" + pairs + "Count=2\r\n");

    // What is staged already, a staged file that is only to be read, and a source that is not there.
    SetFileAttributesA(Path("NEW\\2a.dll").c_str(), FILE_ATTRIBUTE_READONLY);
    m_folder.Write("x/a.dll", "third");
    const DelayCopyList more{{Path("NEW\\1a.dll"), "C:\\c"}, {Path("x\\a.dll"), "C:\\d"}, {Path("none"), "C:\\e"}};
    EXPECT_EQ(
        Traced([&] { EXPECT_TRUE(CAuDelayCopy::Schedule(more)); }),
        Lines{"20 AuDelayCopy.cpp: CopyFile() failed: 2, src = " + Path("none") + ", dest = " + Path("NEW\\3none")});
    EXPECT_EQ(m_folder.Read("NEW/1a.dll") + m_folder.Read("NEW/2a.dll"), "firstthird");
    EXPECT_EQ(Ini(), "[AuArd]\r\n" + pairs + "Count=5\r\n" + Pair(2, Path("NEW\\1a.dll"), "C:\\c") +
                         Pair(3, Path("NEW\\2a.dll"), "C:\\d") + Pair(4, Path("none"), "C:\\e"));
}

TEST_F(AuDelayCopy, Limits)
{
    const std::string fits = "C:\\" + std::string(256, 'x'), tooLong = fits + 'x';
    Lines lines = Traced([&] { EXPECT_FALSE(CAuDelayCopy::Schedule({{tooLong, "d"}, {fits, fits}, {"s", tooLong}})); });
    std::erase_if(lines, [](const std::string& line) { return line.find("CopyFile() failed") != line.npos; });
    const std::string refused = "20 AuDelayCopy.cpp: too long path: src = ";
    EXPECT_EQ(lines, (Lines{refused + tooLong + ", dst = d", refused + "s, dst = " + tooLong}));
    EXPECT_EQ(Ini(), "[AuArd]\r\n" + Pair(0, fits, fits) + "Count=1\r\n");
    DelayCopyList pairs;
    EXPECT_TRUE(CAuDelayCopy::ReadRecord(pairs));
    EXPECT_EQ(pairs.at(0).destination, fits);

    SetIni("[AuArd]\r\nCount=999\r\n");
    lines = Traced([&] { EXPECT_FALSE(CAuDelayCopy::Schedule({{"s", "d"}, {"s", "d"}})); });
    EXPECT_EQ(lines.back(), "20 AuDelayCopy.cpp: too many entries");
    EXPECT_EQ(Ini(), "[AuArd]\r\nCount=1000\r\n" + Pair(999, "s", "d"));
    EXPECT_TRUE(CAuDelayCopy::ReadRecord(pairs));
    EXPECT_EQ(Traced([] { EXPECT_FALSE(CAuDelayCopy::WritePair(1000, "s", "d")); }),
              Lines{"20 AuDelayCopy.cpp: invalid index: 1000"});
    for (const std::string count : {"1001", "4294967295"}) {
        const std::string record = "[AuArd]\r\n" + Pair(0, "s", "d") + "Count=" + count + "\r\n";
        SetIni(record);
        const std::string refusal = "20 AuDelayCopy.cpp: too big count: " + count;
        EXPECT_EQ(Traced([] { EXPECT_FALSE(CAuDelayCopy::DoMoveFileEx()); }), Lines{refusal});
        EXPECT_EQ(Traced([] { EXPECT_FALSE(CAuDelayCopy::Schedule({{"s", "d"}})); }).back(), refusal);
        EXPECT_EQ(Ini(), record);
    }
}

TEST_F(AuDelayCopy, HandsOverWhatCanBeRead)
{
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini() + Listed(), "");
    const std::string lost = "[AuArd]\r\nCount=2\r\nSrcFile0=s\r\n" + Pair(1, std::string(260, 'x'), "d");
    SetIni(lost);
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini() + Listed(), lost) << "nothing can be read";

    const std::string a = Path("a"), b = Path("b"), c = Path("c");
    SetIni("[AuArd]\r\nCount=3\r\n" + Pair(0, a, b) + "SrcFile1=x\r\n" + Pair(2, b, c) + "[Info]\r\nPattern=1\r\n");
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini(), "[Info]\r\nPattern=1\r\n");
    EXPECT_EQ(Listed(), "\\??\\" + a + "|!\\??\\" + b + "|\\??\\" + b + "|!\\??\\" + c + "||");
}

TEST_F(AuDelayCopy, WinInitHasShortNames)
{
    m_folder.Write("source", "s");
    m_folder.Write("there", "d");
    const std::string there = Path("there"), absent = Path("absent");
    EXPECT_EQ(Traced([&] {
                  EXPECT_FALSE(CAuDelayCopy::WriteWinInit(
                      {{Path("none"), there}, {Path("source"), there}, {Path("source"), absent}}));
              }),
              Lines{"20 AuDelayCopy.cpp: GetShortPathName() failed: 2, src = " + Path("none")});
    char source[260] = {}, shortThere[260] = {}, value[260] = {};
    GetShortPathNameA(Path("source").c_str(), source, 260);
    GetShortPathNameA(there.c_str(), shortThere, 260);
    for (const char* key : {static_cast<const char*>(shortThere), absent.c_str()}) {
        GetPrivateProfileStringA("rename", key, "", value, 260, "wininit.ini");
        EXPECT_STREQ(value, source) << key;
    }
    WritePrivateProfileStringA("rename", nullptr, nullptr, "wininit.ini");
}

#ifndef _WIN32
TEST_F(AuDelayCopy, FailureKeepsTheRecordAndSparesTheOthers)
{
    const std::string record = "[AuArd]\r\nCount=2\r\n" + Pair(0, "Q:\\a", Path("b")) + Pair(1, Path("a"), Path("b"));
    SetIni(record);
    const Lines lines = Traced([] { EXPECT_FALSE(CAuDelayCopy::DoMoveFileEx()); });
    EXPECT_NE(std::find(lines.begin(), lines.end(), "20 AuDelayCopy.cpp: MoveFileEx() failed: 3"), lines.end());
    EXPECT_EQ(Ini(), record);
    EXPECT_EQ(Listed(), "\\??\\" + Path("a") + "|!\\??\\" + Path("b") + "||");
}

#endif

} // namespace
