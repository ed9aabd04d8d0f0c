// Share modes between handles of one process and of several.
#include "tests/platform/Files.h"

#include <atomic>
#include <iostream>
#include <thread>

using namespace vlt::test;

namespace
{

vlt::FileHandle Open(const WString& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
{
    return OpenFile(path, access, disposition, share);
}

std::string Narrow(const WString& text)
{
    return vlt::ToNarrow(text, CP_UTF8);
}

// Opens args[0] with access args[1] and share args[2], says the error and holds it until a line comes.
VLT_CHILD(share_holder)
{
    const vlt::FileHandle file = Open(vlt::ToWide(args[0], CP_UTF8), static_cast<DWORD>(std::stoul(args[1])),
                                      static_cast<DWORD>(std::stoul(args[2])));
    std::printf("%u\n", static_cast<unsigned>(file ? 0 : GetLastError()));
    std::string line;
    std::getline(std::cin, line);
    return 0;
}

Child Holder(const WString& path, DWORD access, DWORD share)
{
    return Child("share_holder", {Narrow(path), std::to_string(access), std::to_string(share)});
}

// Every pair of access and share mode against every other: an opener is refused exactly when it does
// what a holder denies or denies what a holder does.
TEST(FileShareTest, EveryCombinationInOneProcess)
{
    const TempFolder folder;
    WriteBytes(folder.HostPath("f"), "abc");
    const WString path = folder.PathW("f");
    const DWORD accesses[] = {GENERIC_READ, GENERIC_WRITE, kReadWrite, DELETE, GENERIC_READ | DELETE};
    const auto bits = [](DWORD access) {
        return ((access & GENERIC_READ) != 0 ? FILE_SHARE_READ : 0u) |
               ((access & GENERIC_WRITE) != 0 ? FILE_SHARE_WRITE : 0u) |
               ((access & DELETE) != 0 ? FILE_SHARE_DELETE : 0u);
    };
    for (const DWORD first : accesses) {
        for (DWORD firstShare = 0; firstShare < 8; ++firstShare) {
            const vlt::FileHandle holder = Open(path, first, firstShare);
            ASSERT_TRUE(holder) << first << ' ' << firstShare << ' ' << GetLastError();
            for (const DWORD second : accesses) {
                for (DWORD secondShare = 0; secondShare < 8; ++secondShare) {
                    const bool allowed = (bits(second) & ~firstShare) == 0 && (bits(first) & ~secondShare) == 0;
                    const vlt::FileHandle opener = Open(path, second, secondShare);
                    EXPECT_EQ(static_cast<bool>(opener), allowed)
                        << std::hex << first << '/' << firstShare << " then " << second << '/' << secondShare;
                    EXPECT_EQ(GetLastError() == ERROR_SHARING_VIOLATION, !allowed);
                }
            }
        }
    }
}

TEST(FileShareTest, SecondWriterInAnotherProcessFails)
{
    const TempFolder folder;
    const WString path = folder.PathW("log");
    WriteBytes(folder.HostPath("log"), "abc");
    Child holder = Holder(path, GENERIC_WRITE, FILE_SHARE_READ);
    ASSERT_EQ(holder.ReadLine(), "0");
    EXPECT_FAILS(Open(path, GENERIC_WRITE, FILE_SHARE_READ), ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(Open(path, GENERIC_READ, FILE_SHARE_READ)); // it would deny the holder's writing
    EXPECT_TRUE(Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE));
    EXPECT_FALSE(Open(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS));
    EXPECT_EQ(ReadBytes(folder.HostPath("log")), "abc"); // refused before it was emptied
    EXPECT_FAILS(DeleteFileW(path.c_str()), ERROR_SHARING_VIOLATION);
    EXPECT_FAILS(MoveFileW(path.c_str(), folder.PathW("other").c_str()), ERROR_SHARING_VIOLATION);
    Child second = Holder(path, GENERIC_WRITE, FILE_SHARE_READ);
    EXPECT_EQ(second.ReadLine(), std::to_string(ERROR_SHARING_VIOLATION));

    holder.Kill(); // a dead holder holds nothing
    ASSERT_TRUE(vlt::test::Eventually(20000, [&] { return static_cast<bool>(Open(path, GENERIC_WRITE, 0)); }));
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST(FileShareTest, DeletableFilesCanBeDeletedAndMadeAnew)
{
    const TempFolder folder;
    const WString path = folder.PathW("f");
    WriteBytes(folder.HostPath("f"), "old");
    vlt::FileHandle holder = Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE);
    EXPECT_TRUE(MoveFileW(path.c_str(), folder.PathW("g").c_str()));
    EXPECT_TRUE(DeleteFileW(folder.PathW("g").c_str()));
    char text[4] = {};
    DWORD done = 0;
    EXPECT_TRUE(ReadFile(holder.Get(), text, 3, &done, nullptr));
    EXPECT_STREQ(text, "old");
    EXPECT_TRUE(Open(path, GENERIC_WRITE, 0, CREATE_NEW));
}

void OnFourThreads(const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(body);
    for (std::thread& thread : threads)
        thread.join();
}

// Openers that exclude each other: never two at a time, and a refusal only while another one holds it.
// Openers that agree with each other never fail each other.
TEST(FileShareTest, RacingOpeners)
{
    const TempFolder folder;
    const WString path = folder.PathW("f");
    WriteBytes(folder.HostPath("f"), "");
    std::atomic<int> holders{0};
    std::atomic<int> failures{0};
    OnFourThreads([&] {
        for (int mine = 0; mine < 200;) {
            const vlt::FileHandle file = Open(path, kReadWrite, 0);
            if (!file) {
                failures += GetLastError() != ERROR_SHARING_VIOLATION;
                std::this_thread::yield();
                continue;
            }
            failures += holders.fetch_add(1) != 0;
            holders.fetch_sub(1);
            ++mine;
        }
    });
    EXPECT_EQ(failures, 0);
    OnFourThreads([&] {
        for (int round = 0; round < 300; ++round)
            failures += !Open(folder.PathW("db"), kReadWrite, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS);
    });
    EXPECT_EQ(failures, 0);
}

// A handle that has been closed denies nothing more, also while processes are being started: their
// copy of the descriptor lives until they have become another program.
TEST(FileShareTest, ClosedHandlesDenyNothingWhileProcessesStart)
{
    const TempFolder folder;
    const WString path = folder.PathW("f");
    WriteBytes(folder.HostPath("f"), "");
    std::atomic<bool> done{false};
    std::thread starter([&] {
        for (int i = 0; i < 20; ++i) {
            Child child = Holder(path, GENERIC_READ, 7);
            child.CloseInput();
            child.Wait(20000);
        }
        done = true;
    });
    int failures = 0;
    while (!done) {
        // The child reads with every share mode, which only a writer that shares nothing would meet.
        if (!Open(path, GENERIC_WRITE, FILE_SHARE_READ))
            ++failures;
    }
    starter.join();
    EXPECT_EQ(failures, 0);
}

} // namespace
