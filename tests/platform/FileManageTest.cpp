// Folders, moving, copying, deleting and temporary names.
#include "tests/platform/Files.h"

#include <set>
#ifndef _WIN32
#include "tests/support/posix/Privileges.h"
#endif

using namespace vlt::test;

namespace
{

TEST(FileManageTest, FoldersAndDeletion)
{
    const TempFolder folder;
    const WString path = folder.PathW("Sub");
    EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    EXPECT_FAILS(CreateDirectoryW(folder.PathW("sUB").c_str(), nullptr), ERROR_ALREADY_EXISTS);
    EXPECT_FAILS(CreateDirectoryW(folder.PathW("a\\b").c_str(), nullptr), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(CreateDirectoryA(vlt::ToNarrow(folder.PathW("Sub\\Narrow")).c_str(), nullptr));
    EXPECT_FAILS(RemoveDirectoryW(path.c_str()), ERROR_DIR_NOT_EMPTY);
    EXPECT_FAILS(DeleteFileW(path.c_str()), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(RemoveDirectoryW(folder.PathW("Sub\\Narrow").c_str()));
    EXPECT_TRUE(RemoveDirectoryW(path.c_str()));
    WriteBytes(folder.HostPath("f"), "");
    EXPECT_FAILS(RemoveDirectoryW(folder.PathW("f").c_str()), ERROR_DIRECTORY);
    EXPECT_TRUE(DeleteFileA(vlt::ToNarrow(folder.PathW("F")).c_str()));
    EXPECT_FAILS(DeleteFileW(folder.PathW("f").c_str()), ERROR_FILE_NOT_FOUND);
    EXPECT_FAILS(DeleteFileW(folder.PathW("no\\f").c_str()), ERROR_PATH_NOT_FOUND);
}

TEST(FileManageTest, MovesButNeverOver)
{
    const TempFolder folder;
    const WString a = folder.PathW("a.txt");
    const WString b = folder.PathW("b.txt");
    WriteBytes(folder.HostPath("a.txt"), "a");
    WriteBytes(folder.HostPath("b.txt"), "b");
    EXPECT_FAILS(MoveFileW(a.c_str(), folder.PathW("B.TXT").c_str()), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(MoveFileExW(a.c_str(), b.c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(ReadBytes(folder.HostPath("b.txt")), "a");
    EXPECT_FALSE(Exists(a));

    // A change of case alone; a folder with what is in it.
    EXPECT_TRUE(MoveFileA(vlt::ToNarrow(b).c_str(), vlt::ToNarrow(folder.PathW("B.txt")).c_str()));
    EXPECT_EQ(ReadBytes(folder.HostPath("B.txt")), "a");
    ASSERT_TRUE(CreateDirectoryW(folder.PathW("d").c_str(), nullptr));
    WriteBytes(folder.HostPath("d/inside"), "i");
    EXPECT_TRUE(MoveFileW(folder.PathW("d").c_str(), folder.PathW("e").c_str()));
    EXPECT_EQ(ReadBytes(folder.HostPath("e/inside")), "i");
    EXPECT_FAILS(MoveFileExW(folder.PathW("B.txt").c_str(), folder.PathW("e").c_str(), MOVEFILE_REPLACE_EXISTING),
                 ERROR_ACCESS_DENIED);
}

TEST(FileManageTest, CopiesWithAttributes)
{
    const TempFolder folder;
    const WString a = folder.PathW("a");
    const WString b = folder.PathW("b");
    const std::string contents(200'000, 'c');
    WriteBytes(folder.HostPath("a"), contents);
    EXPECT_TRUE(CopyFileW(a.c_str(), b.c_str(), TRUE));
    EXPECT_EQ(ReadBytes(folder.HostPath("b")), contents);
    EXPECT_FAILS(CopyFileW(a.c_str(), b.c_str(), TRUE), ERROR_FILE_EXISTS);
    WriteBytes(folder.HostPath("a"), "short");
    EXPECT_TRUE(CopyFileA(vlt::ToNarrow(a).c_str(), vlt::ToNarrow(b).c_str(), FALSE));
    EXPECT_EQ(ReadBytes(folder.HostPath("b")), "short");
    EXPECT_FAILS(CopyFileW(a.c_str(), a.c_str(), FALSE), ERROR_SHARING_VIOLATION);

    ASSERT_TRUE(SetFileAttributesW(a.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(CopyFileW(a.c_str(), folder.PathW("r").c_str(), FALSE));
    EXPECT_NE(GetFileAttributesW(folder.PathW("r").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
#ifndef _WIN32 // Wine does not protect read-only files from root
    EXPECT_FAILS(CopyFileW(b.c_str(), folder.PathW("r").c_str(), FALSE), ERROR_ACCESS_DENIED);
    EXPECT_FAILS(MoveFileExW(b.c_str(), folder.PathW("r").c_str(), MOVEFILE_REPLACE_EXISTING), ERROR_ACCESS_DENIED);
#endif
    EXPECT_TRUE(SetFileAttributesA(vlt::ToNarrow(folder.PathW("r")).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(SetFileAttributesW(a.c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST(FileManageTest, TemporaryFilesAreMadeAndUnique)
{
    const TempFolder folder;
    std::set<WString> names;
    for (int i = 0; i < 50; ++i) {
        WCHAR path[MAX_PATH] = {};
        ASSERT_NE(GetTempFileNameW(folder.PathW().c_str(), i % 2 == 0 ? TEXT("") : TEXT("abcd"), 0, path), 0u);
        EXPECT_TRUE(Exists(path));
        const WString name = WString(path).substr(folder.PathW().size() + 1);
        const std::size_t digits = name.find_first_not_of(TEXT("0123456789ABCDEFabcdef"), i % 2 == 0 ? 0 : 3);
        EXPECT_EQ(name.substr(digits), TEXT(".tmp"));
        EXPECT_EQ(name.substr(0, 3) == TEXT("abc"), i % 2 != 0);
        EXPECT_TRUE(names.insert(path).second);
    }
    WCHAR path[MAX_PATH] = {};
    ASSERT_NE(GetTempPathW(MAX_PATH, path), 0u);
    EXPECT_EQ(path[lstrlenW(path) - 1], TEXT('\\'));
    EXPECT_NE(GetFileAttributesW(path) & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

#ifndef _WIN32
TEST(FileManageTest, MovesBetweenFileSystemsByCopying)
{
    const TempFolder folder;
    std::filesystem::create_directory(folder.HostPath("other"));
    if (!MountSmallDisk(folder.HostPath("other"), "1m"))
        GTEST_SKIP() << "needs the right to mount";
    WriteBytes(folder.HostPath("tool"), "program");
    ASSERT_EQ(chmod(folder.HostPath("tool").c_str(), 0755), 0);
    EXPECT_FAILS(MoveFileExW(folder.PathW("tool").c_str(), folder.PathW("other\\tool").c_str(), 0),
                 ERROR_NOT_SAME_DEVICE);
    EXPECT_TRUE(MoveFileW(folder.PathW("tool").c_str(), folder.PathW("other\\tool").c_str()));
    EXPECT_FALSE(Exists(folder.PathW("tool")));
    EXPECT_EQ(ReadBytes(folder.HostPath("other/tool")), "program");
    struct stat status;
    ASSERT_EQ(stat(folder.HostPath("other/tool").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0755u); // a program stays one
    // What does not fit stays where it is.
    WriteBytes(folder.HostPath("large"), std::string(2 << 20, 'x'));
    EXPECT_FAILS(MoveFileW(folder.PathW("large").c_str(), folder.PathW("other\\large").c_str()), ERROR_DISK_FULL);
    EXPECT_EQ(ReadBytes(folder.HostPath("large")).size(), std::size_t{2} << 20);
    EXPECT_FALSE(Exists(folder.PathW("other\\large")));
    umount(folder.HostPath("other").c_str());
}
#endif

} // namespace
