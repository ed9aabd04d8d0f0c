// Opening, reading, writing and the attributes of files.
#include "tests/platform/Files.h"

#ifndef _WIN32
#include "tests/support/posix/Privileges.h"
#endif

using namespace vlt::test;

namespace
{

TEST(FileTest, DispositionsAndTheirErrors)
{
    const TempFolder folder;
    const WString path = folder.PathW("file.txt");
    EXPECT_FAILS(OpenFile(path, GENERIC_READ, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_FAILS(OpenFile(folder.PathW() + TEXT("\\no\\file.txt"), kReadWrite, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);

    EXPECT_TRUE(OpenFile(path, kReadWrite, OPEN_ALWAYS));
    EXPECT_EQ(GetLastError(), 0u);
    WriteBytes(folder.HostPath("file.txt"), "contents");
    EXPECT_TRUE(OpenFile(path, kReadWrite, OPEN_ALWAYS));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(ReadBytes(folder.HostPath("file.txt")), "contents");
    EXPECT_FAILS(OpenFile(path, kReadWrite, CREATE_NEW), ERROR_FILE_EXISTS);
    EXPECT_TRUE(OpenFile(path, kReadWrite, TRUNCATE_EXISTING));
    EXPECT_EQ(ReadBytes(folder.HostPath("file.txt")), "");
    WriteBytes(folder.HostPath("file.txt"), "contents");
    EXPECT_TRUE(OpenFile(path, GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(ReadBytes(folder.HostPath("file.txt")), "");
    EXPECT_TRUE(OpenFile(folder.PathW("newer"), GENERIC_WRITE, CREATE_ALWAYS));
    EXPECT_EQ(GetLastError(), 0u);

    EXPECT_FAILS(OpenFile(folder.PathW(), GENERIC_READ, OPEN_EXISTING), ERROR_ACCESS_DENIED);
}

TEST(FileTest, ReadsAndWritesAtThePointer)
{
    const TempFolder folder;
    vlt::FileHandle file = OpenFile(folder.PathW("f"), kReadWrite, CREATE_NEW);
    ASSERT_TRUE(file);
    DWORD done = 99;
    EXPECT_TRUE(WriteFile(file.Get(), "0123456789", 10, &done, nullptr));
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(SetFilePointer(file.Get(), -3, nullptr, FILE_END), 7u);
    char buffer[8] = {};
    EXPECT_TRUE(ReadFile(file.Get(), buffer, sizeof buffer, &done, nullptr));
    EXPECT_EQ(std::string(buffer, done), "789");
    EXPECT_TRUE(ReadFile(file.Get(), buffer, sizeof buffer, &done, nullptr));
    EXPECT_EQ(done, 0u); // the end is no error
    EXPECT_EQ(SetFilePointer(file.Get(), 2, nullptr, FILE_BEGIN), 2u);
    EXPECT_EQ(SetFilePointer(file.Get(), 3, nullptr, FILE_CURRENT), 5u);
    EXPECT_EQ(SetFilePointer(file.Get(), -6, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
    EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
    EXPECT_TRUE(WriteFile(file.Get(), "AB", 2, &done, nullptr));
    EXPECT_TRUE(FlushFileBuffers(file.Get()));
    LARGE_INTEGER size;
    EXPECT_TRUE(GetFileSizeEx(file.Get(), &size));
    EXPECT_EQ(size.QuadPart, 10);
    file.Reset();
    EXPECT_EQ(ReadBytes(folder.HostPath("f")), "01234AB789");

    // The right to append alone: wherever others have written meanwhile.
    file = OpenFile(folder.PathW("f"), FILE_APPEND_DATA, OPEN_EXISTING);
    SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN);
    EXPECT_TRUE(WriteFile(file.Get(), "CD", 2, &done, nullptr));
    EXPECT_FAILS(ReadFile(file.Get(), buffer, sizeof buffer, &done, nullptr), ERROR_ACCESS_DENIED);
    const HANDLE stale = file.Get();
    file.Reset();
    EXPECT_FAILS(WriteFile(stale, "x", 1, &done, nullptr), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ReadBytes(folder.HostPath("f")), "01234AB789CD");
}

TEST(FileTest, Attributes)
{
    const TempFolder folder;
    const WString path = folder.PathW("f");
    EXPECT_FAILS(Exists(path), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesA(vlt::ToNarrow(folder.PathW()).c_str()) & FILE_ATTRIBUTE_DIRECTORY,
              FILE_ATTRIBUTE_DIRECTORY);
    WriteBytes(folder.HostPath("f"), "abc");
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(OpenFile(path, GENERIC_READ, OPEN_EXISTING));
#ifndef _WIN32 // Wine does not protect read-only files from root
    for (const DWORD disposition : {OPEN_EXISTING, OPEN_ALWAYS, CREATE_ALWAYS, TRUNCATE_EXISTING})
        EXPECT_FAILS(OpenFile(path, kReadWrite, disposition), ERROR_ACCESS_DENIED);
    EXPECT_FAILS(DeleteFileW(path.c_str()), ERROR_ACCESS_DENIED);
#endif
    EXPECT_EQ(ReadBytes(folder.HostPath("f")), "abc");
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    EXPECT_TRUE(OpenFile(path, kReadWrite, OPEN_EXISTING));

    // Made read-only, and yet its maker may write it.
    const vlt::FileHandle made = OpenFile(folder.PathW("r"), kReadWrite, CREATE_NEW, 0, FILE_ATTRIBUTE_READONLY);
    DWORD done = 0;
    EXPECT_TRUE(WriteFile(made.Get(), "x", 1, &done, nullptr));
    EXPECT_NE(GetFileAttributesW(folder.PathW("r").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

#ifndef _WIN32
// What stands in for a file must neither hold the caller up nor be read as one.
TEST(FileTest, OnlyRegularFilesAreOpened)
{
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.HostPath("pipe").c_str(), 0666), 0);
    for (const DWORD access : {GENERIC_READ, GENERIC_WRITE, kReadWrite}) {
        EXPECT_FAILS(OpenFile(folder.PathW("pipe"), access, OPEN_EXISTING), ERROR_ACCESS_DENIED);
    }
    EXPECT_TRUE(DeleteFileW(folder.PathW("pipe").c_str()));
    ASSERT_EQ(symlink("nowhere", folder.HostPath("link").c_str()), 0);
    EXPECT_FAILS(OpenFile(folder.PathW("link"), GENERIC_WRITE, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
    EXPECT_NE(GetFileAttributesW(folder.PathW("link").c_str()) & FILE_ATTRIBUTE_REPARSE_POINT, 0u);
    EXPECT_TRUE(DeleteFileW(folder.PathW("link").c_str()));
}

// A record is in the file whole or not at all, also when the disk is full.
TEST(FileTest, FullDiskLeavesNoPartOfARecord)
{
    const TempFolder folder;
    if (!MountSmallDisk(folder.HostPath(), "64k"))
        GTEST_SKIP() << "needs the right to mount";
    {
        vlt::FileHandle file = OpenFile(folder.PathW("log"), GENERIC_WRITE, CREATE_NEW);
        const std::string record(48 * 1024, 'r');
        DWORD done = 0;
        EXPECT_TRUE(WriteFile(file.Get(), record.data(), static_cast<DWORD>(record.size()), &done, nullptr));
        EXPECT_FAILS(WriteFile(file.Get(), record.data(), static_cast<DWORD>(record.size()), &done, nullptr),
                     ERROR_DISK_FULL);
        EXPECT_EQ(done, 0u);
        EXPECT_EQ(ReadBytes(folder.HostPath("log")).size(), record.size());
        EXPECT_TRUE(WriteFile(file.Get(), "end", 3, &done, nullptr));
        EXPECT_EQ(ReadBytes(folder.HostPath("log")), record + "end");
        file.Reset();
        EXPECT_FAILS(CopyFileW(folder.PathW("log").c_str(), folder.PathW("copy").c_str(), FALSE), ERROR_DISK_FULL);
        EXPECT_EQ(GetFileAttributesW(folder.PathW("copy").c_str()), INVALID_FILE_ATTRIBUTES);
    }
    umount(folder.HostPath().c_str());
}
#endif

} // namespace
