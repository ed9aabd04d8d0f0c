// What a path text means: slashes, case, drives, the current directory, long and hostile names.
#include "tests/platform/Files.h"

#ifndef _WIN32
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/file/Path.h"
#endif

using namespace vlt::test;

namespace
{

WString FullPath(const WString& path)
{
    WCHAR buffer[MAX_PATH] = {};
    GetFullPathNameW(path.c_str(), MAX_PATH, buffer, nullptr);
    return buffer;
}

class PathTest : public testing::Test
{
protected:
    PathTest()
    {
        WCHAR buffer[MAX_PATH] = {};
        GetCurrentDirectoryW(MAX_PATH, buffer);
        m_before = buffer;
        WriteBytes(m_folder.HostPath("File.TXT"), "here");
    }
    ~PathTest() override { SetCurrentDirectoryW(m_before.c_str()); }

    TempFolder m_folder;
    WString m_before;
};

TEST_F(PathTest, FormsOfOnePath)
{
    const WString folder = m_folder.PathW();
    WString slashes = folder;
    for (WCHAR& c : slashes)
        c = c == TEXT('\\') ? TEXT('/') : c;
    for (const WString& path : {folder + TEXT("\\File.TXT"), folder + TEXT("\\\\file.txt"), slashes + TEXT("/FILE.txt"),
                                folder + TEXT("\\x\\..\\File.TXT"), folder + TEXT("\\.\\file.txt"),
                                TEXT("\\\\?\\") + folder + TEXT("\\File.TXT")})
        EXPECT_TRUE(Exists(path)) << vlt::ToNarrow(path);
    EXPECT_FALSE(Exists(folder + TEXT("\\File.TX")));
    EXPECT_FALSE(Exists(TEXT("")));
    EXPECT_FALSE(Exists(TEXT("Q:\\x")));
    // Wine has the error of a missing file.
    EXPECT_TRUE(GetLastError() == ERROR_PATH_NOT_FOUND || GetLastError() == ERROR_FILE_NOT_FOUND);
}

TEST_F(PathTest, NamesKeepTheCaseTheyWereMadeWith)
{
    ASSERT_TRUE(CreateDirectoryW(m_folder.PathW("MixedCase").c_str(), nullptr));
    WriteBytes(m_folder.HostPath("MixedCase/Inner.Dat"), "x");
    ASSERT_TRUE(OpenFile(m_folder.PathW("MIXEDCASE\\inner.dat"), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    WIN32_FIND_DATAW data;
    const vlt::FindHandle find(FindFirstFileW(m_folder.PathW("mixedcase\\INNER.*").c_str(), &data));
    ASSERT_TRUE(find);
    EXPECT_EQ(WString(data.cFileName), TEXT("Inner.Dat"));
}

TEST_F(PathTest, CurrentDirectory)
{
    ASSERT_TRUE(SetCurrentDirectoryW(m_folder.PathW().c_str()));
    WCHAR buffer[MAX_PATH] = {};
    EXPECT_EQ(GetCurrentDirectoryW(MAX_PATH, buffer), m_folder.PathW().size());
    EXPECT_EQ(lstrcmpiW(buffer, m_folder.PathW().c_str()), 0);
    EXPECT_EQ(GetCurrentDirectoryW(2, buffer), m_folder.PathW().size() + 1);
    EXPECT_TRUE(Exists(TEXT("file.txt")));
    EXPECT_TRUE(Exists(TEXT("C:file.txt")));
    EXPECT_EQ(lstrcmpiW(FullPath(TEXT("a\\..\\b")).c_str(), (m_folder.PathW() + TEXT("\\b")).c_str()), 0);
    EXPECT_TRUE(MoveFileW(TEXT("File.TXT"), TEXT("moved")));
    EXPECT_TRUE(Exists(m_folder.PathW("moved")));
    EXPECT_FAILS(SetCurrentDirectoryW(m_folder.PathW("none").c_str()), ERROR_FILE_NOT_FOUND);
    EXPECT_FAILS(SetCurrentDirectoryW(m_folder.PathW("moved").c_str()), ERROR_DIRECTORY);
}

TEST_F(PathTest, FullAndShortNames)
{
    EXPECT_EQ(FullPath(TEXT("C:/a//b/../c")), TEXT("C:\\a\\c"));
    EXPECT_EQ(FullPath(TEXT("C:\\a\\")), TEXT("C:\\a\\"));
    EXPECT_EQ(FullPath(TEXT("C:\\..\\..")), TEXT("C:\\"));
    WCHAR buffer[MAX_PATH];
    LPWSTR part = nullptr;
    EXPECT_EQ(GetFullPathNameW(TEXT("C:\\dir\\name.ext"), MAX_PATH, buffer, &part), 15u);
    EXPECT_EQ(WString(part), TEXT("name.ext"));
    EXPECT_EQ(GetFullPathNameW(TEXT("C:\\dir"), 6, buffer, nullptr), 7u);

    EXPECT_NE(GetShortPathNameW(m_folder.PathW("File.TXT").c_str(), buffer, MAX_PATH), 0u);
    EXPECT_TRUE(Exists(buffer));
    EXPECT_FAILS(GetShortPathNameW(m_folder.PathW("none").c_str(), buffer, MAX_PATH), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetDriveTypeW(TEXT("C:\\")), DRIVE_FIXED);
    EXPECT_EQ(GetDriveTypeA("Q:\\"), DRIVE_NO_ROOT_DIR);
}

#ifndef _WIN32
using namespace vlt::posix;

TEST_F(PathTest, MapsToTheHostAndBack)
{
    EXPECT_EQ(HostPathFromWindows(u"Z:\\"), "/");
    EXPECT_EQ(HostPathFromWindows(u"z:/etc/passwd"), "/etc/passwd");
    EXPECT_EQ(HostPathFromWindows(u"C:\\"), MachineFolder("drives") + "/c");
    EXPECT_EQ(WindowsPathFromHost("/etc//passwd"), u"Z:\\etc\\passwd");
    EXPECT_EQ(WindowsPathFromHost(m_folder.HostPath("File.TXT").string()), m_folder.PathW("File.TXT"));
    WriteBytes(m_folder.HostPath("file.txt"), "lower"); // the exact name wins
    for (const char* name : {"file.txt", "File.TXT"})
        EXPECT_EQ(HostPathFromWindows(m_folder.PathW(name)), m_folder.HostPath(name).string());
    for (const char16_t* path : {u"\\\\server\\share\\f", u"\\\\.\\pipe\\x", u"\\\\?\\UNC\\s\\x"})
        EXPECT_EQ(HostPathFromWindows(path), "");
}

// A name that the product cannot express is a name that malware would choose.
TEST_F(PathTest, HostileNamesMakeTheRoundTrip)
{
    for (const std::string name : {"back\\slash", "\xFF\xFEnot text", "\xED\xB1\x9C", "line\nbreak", "dot.", "blank ",
                                   "a:b", "star*?", "\xED\xA0\x80\xED\xB0\x80", "\\"}) {
        const std::filesystem::path host = m_folder.HostPath() / name;
        WriteBytes(host, name);
        const std::u16string path = WindowsPathFromHost(host.string());
        EXPECT_EQ(HostPathFromWindows(path), host.string());
        EXPECT_TRUE(Exists(path)) << name;
        EXPECT_TRUE(MoveFileW(path.c_str(), m_folder.PathW("caught").c_str())) << name;
        EXPECT_EQ(ReadBytes(m_folder.HostPath("caught")), name);
        EXPECT_TRUE(DeleteFileW(m_folder.PathW("caught").c_str()));
    }
    EXPECT_FAILS(OpenFile(m_folder.PathW("a|b"), GENERIC_WRITE, CREATE_NEW), ERROR_INVALID_NAME);
}

TEST_F(PathTest, LongPaths)
{
    const std::u16string longName(200, u'n');
    const std::u16string path = m_folder.PathW() + u"\\" + longName + u"\\" + longName;
    EXPECT_FAILS(CreateDirectoryW(path.c_str(), nullptr), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_TRUE(CreateDirectoryW((u"\\\\?\\" + m_folder.PathW() + u"\\" + longName).c_str(), nullptr));
    EXPECT_TRUE(CreateDirectoryW((u"\\\\?\\" + path).c_str(), nullptr));
}

#endif

} // namespace
