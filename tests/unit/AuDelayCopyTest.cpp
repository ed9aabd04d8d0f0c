// Replacements of files in use: staged, recorded, handed to the system and carried out at its next start.
#include "ARDCommon/AuDelayCopy.h"

#include "ARDCommon/Registry.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#ifndef _WIN32
#include "platform/posix/file/PendingMoves.h"
#endif

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::ReadBytes;
using vlt::test::Traced;
using vlt::test::WriteBytes;

constexpr const WCHAR* kProduct = TEXT("Software\\Veltrano\\Ardentis");
constexpr const WCHAR* kSession = TEXT("SYSTEM\\CurrentControlSet\\Control\\Session Manager");
constexpr const WCHAR* kList = TEXT("PendingFileRenameOperations");

class AuDelayCopy : public testing::Test
{
protected:
    AuDelayCopy()
    {
        vlt::SetRegString(HKEY_LOCAL_MACHINE, kProduct, TEXT("Application Path"), m_folder.PathW().c_str());
        vlt::GetRegBytes(HKEY_LOCAL_MACHINE, kSession, kList, m_before);
    }
    ~AuDelayCopy() override
    {
        vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, kProduct, TEXT("Application Path"));
        vlt::RegKey key;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSession, 0, KEY_SET_VALUE, key.Receive());
        if (m_before.empty())
            RegDeleteValueW(key.Get(), kList);
        else
            RegSetValueExW(key.Get(), kList, 0, REG_MULTI_SZ, m_before.data(), static_cast<DWORD>(m_before.size()));
    }

    std::string Path(const std::string& name) const { return vlt::ToNarrow(m_folder.PathW(name)); }
    std::string Content(const std::string& name) const { return ReadBytes(m_folder.HostPath(name)); }
    std::string Ini() const { return Content("ardentis.ini"); }
    void SetIni(const std::string& text) const { WriteBytes(m_folder.HostPath("ardentis.ini"), text); }

    // What was added to the system's list, with | for each terminator.
    std::string Listed() const
    {
        std::vector<BYTE> data;
        vlt::GetRegBytes(HKEY_LOCAL_MACHINE, kSession, kList, data);
        const std::size_t known = m_before.empty() ? 0 : m_before.size() - sizeof(WCHAR);
        std::string text;
        for (std::size_t at = known; at + 1 < data.size(); at += sizeof(WCHAR))
            text += data[at] != 0 ? static_cast<char>(data[at]) : '|';
        return text;
    }
    std::string Entry(const std::string& source, const std::string& destination) const
    {
        return "\\??\\" + source + "|!\\??\\" + destination + '|';
    }

    vlt::test::TempFolder m_folder;
    std::vector<BYTE> m_before;
    bool m_done = false;
};

TEST_F(AuDelayCopy, StagesAndRecords)
{
    fs::create_directory(m_folder.HostPath("x"));
    WriteBytes(m_folder.HostPath("a.dll"), "first");
    WriteBytes(m_folder.HostPath("x/a.dll"), "second");
    EXPECT_TRUE(CAuDelayCopy::Schedule({{Path("a.dll"), "C:\\p\\a.dll"}, {Path("x\\a.dll"), "C:\\p\\b.dll"}}));
    EXPECT_EQ(Content("NEW/1a.dll") + Content("NEW/2a.dll"), "firstsecond");
    const auto value = [](const std::string& key, const std::string& text) { return key + '=' + text + "\r\n"; };
    const std::string pairs = value("SrcFile0", Path("NEW\\1a.dll")) + value("DstFile0", "C:\\p\\a.dll") +
                              value("SrcFile1", Path("NEW\\2a.dll")) + value("DstFile1", "C:\\p\\b.dll");
    EXPECT_EQ(Ini(), "[AuArd]\r\n" + pairs + "Count=2\r\n");

    // What is staged already, a staged file that is only to be read, and a source that is not there.
    SetFileAttributesA(Path("NEW\\2a.dll").c_str(), FILE_ATTRIBUTE_READONLY);
    WriteBytes(m_folder.HostPath("x/a.dll"), "third");
    const Lines lines = Traced([&] {
        m_done = CAuDelayCopy::Schedule(
            {{Path("NEW\\1a.dll"), "C:\\p\\c"}, {Path("x\\a.dll"), "C:\\p\\d"}, {Path("none"), "C:\\p\\e"}});
    });
    EXPECT_TRUE(m_done);
    EXPECT_EQ(Content("NEW/1a.dll") + Content("NEW/2a.dll"), "firstthird");
    EXPECT_EQ(lines, Lines{"20 AuDelayCopy.cpp: CopyFile() failed: 2, src = " + Path("none") +
                           ", dest = " + Path("NEW\\3none")});
    DelayCopyList read;
    EXPECT_TRUE(CAuDelayCopy::ReadRecord(read));
    ASSERT_EQ(read.size(), 5u);
    EXPECT_EQ(read[2].source + read[4].source, Path("NEW\\1a.dll") + Path("none"));

    vlt::SetRegString(HKEY_LOCAL_MACHINE, kProduct, TEXT("Application Path"), m_folder.PathW("none").c_str());
    EXPECT_FALSE(CAuDelayCopy::Schedule({}));
}

TEST_F(AuDelayCopy, Limits)
{
    const std::string fits = "C:\\" + std::string(256, 'x');
    const std::string tooLong = fits + 'x';
    ASSERT_EQ(tooLong.size(), 260u);
    Lines lines = Traced([&] { m_done = CAuDelayCopy::Schedule({{tooLong, "d"}, {fits, fits}, {"s", tooLong}}); });
    EXPECT_FALSE(m_done);
    std::erase_if(lines, [](const std::string& line) { return line.find("CopyFile() failed") != line.npos; });
    const std::string refused = "20 AuDelayCopy.cpp: too long path: src = ";
    EXPECT_EQ(lines, (Lines{refused + tooLong + ", dst = d", refused + "s, dst = " + tooLong}));
    EXPECT_EQ(Ini(), "[AuArd]\r\nSrcFile0=" + fits + "\r\nDstFile0=" + fits + "\r\nCount=1\r\n");
    DelayCopyList pairs;
    EXPECT_TRUE(CAuDelayCopy::ReadRecord(pairs));
    EXPECT_EQ(pairs.size(), 1u);

    SetIni("[AuArd]\r\nCount=999\r\n");
    lines = Traced([&] { m_done = CAuDelayCopy::Schedule({{"s", "d"}, {"s", "d"}}); });
    EXPECT_FALSE(m_done);
    EXPECT_EQ(lines.back(), "20 AuDelayCopy.cpp: too many entries");
    EXPECT_EQ(Ini(), "[AuArd]\r\nCount=1000\r\nSrcFile999=s\r\nDstFile999=d\r\n");
    EXPECT_TRUE(CAuDelayCopy::ReadRecord(pairs));
    EXPECT_EQ(Traced([&] { m_done = CAuDelayCopy::WritePair(1000, "s", "d"); }),
              Lines{"20 AuDelayCopy.cpp: invalid index: 1000"});
    for (const char* count : {"1001", "-1", "4294967295"}) {
        SetIni(std::string("[AuArd]\r\nSrcFile0=s\r\nDstFile0=d\r\nCount=") + count + "\r\n");
        const std::string before = Ini();
        for (const auto call : {+[] { return CAuDelayCopy::DoMoveFileEx(); },
                                +[] {
                                    return CAuDelayCopy::Schedule({{"C:\\no", "d"}});
                                }}) {
            lines = Traced([&] { m_done = call(); });
            EXPECT_FALSE(m_done);
            EXPECT_EQ(lines.back().substr(0, 40), "20 AuDelayCopy.cpp: too big count: " +
                                                      std::string(count == std::string("1001") ? "1001" : "42949"));
        }
        EXPECT_EQ(Ini(), before);
    }
    EXPECT_FALSE(CAuDelayCopy::WriteCount(1001));
}

TEST_F(AuDelayCopy, HandsOverWhatCanBeRead)
{
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini() + Listed(), "");
    const std::string lost =
        "[AuArd]\r\nCount=2\r\nSrcFile0=s\r\nDstFile1=d\r\nSrcFile1=" + std::string(260, 'x') + "\r\n";
    SetIni(lost);
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini(), lost) << "nothing can be read";
    EXPECT_EQ(Listed(), "");

    const std::string a = Path("a"), b = Path("b"), c = Path("c");
    SetIni("[AuArd]\r\nCount=4\r\nSrcFile0=" + a + "\r\nDstFile0=" + b + "\r\nSrcFile1=" + a + "\r\nSrcFile2=" + b +
           "\r\nDstFile2=" + c + "\r\n[Info]\r\nPattern=1\r\n");
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Ini(), "[Info]\r\nPattern=1\r\n");
    EXPECT_EQ(Listed(), Entry(a, b) + Entry(b, c) + '|');
}

TEST_F(AuDelayCopy, WinInitHasShortNames)
{
    WriteBytes(m_folder.HostPath("source"), "s");
    WriteBytes(m_folder.HostPath("there"), "d");
    const std::string absent = Path("absent");
    const Lines lines = Traced([&] {
        m_done = CAuDelayCopy::WriteWinInit(
            {{Path("none"), Path("there")}, {Path("source"), Path("there")}, {Path("source"), absent}});
    });
    EXPECT_FALSE(m_done);
    EXPECT_EQ(lines, Lines{"20 AuDelayCopy.cpp: GetShortPathName() failed: 2, src = " + Path("none")});
    char source[260] = {}, there[260] = {}, value[260] = {};
    GetShortPathNameA(Path("source").c_str(), source, 260);
    GetShortPathNameA(Path("there").c_str(), there, 260);
    for (const std::string& key : {std::string(there), absent}) {
        GetPrivateProfileStringA("rename", key.c_str(), "", value, 260, "wininit.ini");
        EXPECT_STREQ(value, source) << key;
    }
    WritePrivateProfileStringA("rename", nullptr, nullptr, "wininit.ini");
}

#ifndef _WIN32
TEST_F(AuDelayCopy, FailureKeepsTheRecordAndSparesTheOthers)
{
    const std::string a = Path("a"), b = Path("b");
    SetIni("[AuArd]\r\nCount=2\r\nSrcFile0=Q:\\a\r\nDstFile0=" + b + "\r\nSrcFile1=" + a + "\r\nDstFile1=" + b +
           "\r\n");
    const std::string before = Ini();
    Lines lines = Traced([&] { m_done = CAuDelayCopy::DoMoveFileEx(); });
    EXPECT_FALSE(m_done);
    std::erase_if(lines, [](const std::string& line) { return line.find("DynLib.cpp") != line.npos; });
    EXPECT_EQ(lines, Lines{"20 AuDelayCopy.cpp: MoveFileEx() failed: 3"});
    EXPECT_EQ(Ini(), before);
    EXPECT_EQ(Listed(), Entry(a, b) + '|');
}

// As many pairs as there may be. Most sources have gone meanwhile.
TEST_F(AuDelayCopy, FilesAreReplacedAtTheNextStart)
{
    const std::string boot = m_folder.HostPath("boot").string();
    setenv("VLT_BOOT_ID", boot.c_str(), 1);
    WriteBytes(boot, "first");
    std::string ini = "[AuArd]\r\nCount=1000\r\n";
    for (int i = 0; i < 1000; ++i) {
        const std::string n = std::to_string(i);
        if (i % 111 == 0)
            WriteBytes(m_folder.HostPath("new" + n), n);
        ini += "SrcFile" + n + '=' + Path("new" + n) + "\r\nDstFile" + n + '=' + Path("old" + n) + "\r\n";
    }
    WriteBytes(m_folder.HostPath("old999"), "old");
    SetIni(ini);
    EXPECT_TRUE(CAuDelayCopy::DoMoveFileEx());
    EXPECT_EQ(Content("old999"), "old");
    WriteBytes(boot, "second");
    vlt::posix::CarryOutPendingMoves();
    for (int i = 0; i < 1000; i += 111)
        EXPECT_EQ(Content("old" + std::to_string(i)), std::to_string(i));
    EXPECT_EQ(Listed(), "");
}
#endif

} // namespace
