// Object files that other programs change behind the layer's back, and disks without room. Linux only.
#include "tests/platform/Waiter.h"
#include "tests/support/posix/Privileges.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>

using namespace vlt::test;
using vlt::KernelHandle;
using vlt::MappedView;
namespace fs = std::filesystem;

namespace
{

fs::path ObjectFile(const std::string& name = {})
{
    const fs::path folder = fs::path(std::getenv("VLT_ROOT")) / "objects";
    return name.empty() ? folder : folder / ("0-" + name);
}

KernelHandle Create(const char* name, DWORD size)
{
    return KernelHandle(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, name));
}
KernelHandle Open(const char* name)
{
    return KernelHandle(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name));
}
MappedView Map(const KernelHandle& section, DWORD access = FILE_MAP_ALL_ACCESS)
{
    return MappedView(MapViewOfFile(section.Get(), access, 0, 0, 0));
}

} // namespace

VLT_CHILD(truncate)
{
    return truncate(args[0].c_str(), 0) == 0 ? 0 : 1;
}

// Touches a file of its own beyond the end, with the handler for object files installed.
VLT_CHILD(own_bus_error)
{
    const KernelHandle section = Create("Other", 100);
    const MappedView view = Map(section);
    const int file = open(args[0].c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* const memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    std::puts("ready");
    return *static_cast<volatile char*>(memory);
}

TEST(SectionFault, ATruncatedFileReadsAsZerosAndStaysPrivate)
{
    const KernelHandle section = Create("Cut", 9000);
    const KernelHandle event(CreateEventA(nullptr, TRUE, TRUE, "CutEvent"));
    {
        const MappedView view = Map(section);
        MappedView readOnly = Map(section, FILE_MAP_READ);
        auto* const bytes = static_cast<volatile char*>(view.Get());
        bytes[0] = 'x';
        bytes[8999] = 'x';
        for (const char* name : {"Cut", "CutEvent"})
            ASSERT_EQ(Child("truncate", {ObjectFile(name).string()}).Wait(kSoon), 0);
        EXPECT_EQ(static_cast<volatile char*>(readOnly.Get())[8999], 0);
        EXPECT_EQ(bytes[0], 0);
        bytes[8999] = 'y';
        EXPECT_EQ(bytes[8999], 'y');
        EXPECT_EQ(static_cast<volatile char*>(readOnly.Get())[0], 0);
    }
    EXPECT_FALSE(IsSignaled(event));
    EXPECT_TRUE(SetEvent(event.Get()));
    EXPECT_TRUE(IsSignaled(event));
    // What is left is no object, neither for us nor for others, as long as it is held.
    EXPECT_FAILS(Open("Cut"), ERROR_INVALID_HANDLE);
    EXPECT_FAILS(Create("Cut", 100), ERROR_INVALID_HANDLE);
}

TEST(SectionFault, ANameWorksAgainWhenTheHoldersOfACutFileHaveGone)
{
    {
        const KernelHandle first = Create("Again", 9000);
        const KernelHandle second = Open("Again");
        EXPECT_TRUE(Map(second));
        ASSERT_EQ(truncate(ObjectFile("Again").c_str(), 4096), 0);
    }
    const KernelHandle fresh = Create("Again", 100);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    const MappedView view = Map(fresh);
    MEMORY_BASIC_INFORMATION region{};
    VirtualQuery(view.Get(), &region, sizeof region);
    EXPECT_EQ(region.RegionSize, 4096u);
    std::strcpy(static_cast<char*>(view.Get()), "shared");
    const MappedView other = Map(Open("Again"), FILE_MAP_READ);
    EXPECT_STREQ(static_cast<char*>(other.Get()), "shared");
}

TEST(SectionFault, OtherBusErrorsEndTheProcessAsBefore)
{
    const TempFolder folder;
    Child child("own_bus_error", {(folder.HostPath() / "file").string()});
    EXPECT_EQ(child.ReadLine(), "ready");
    EXPECT_NE(child.Wait(kSoon), 0); // 135, or what a sanitizer ends with
}

TEST(SectionFault, HostileHeadersAreRefused)
{
    const KernelHandle section = Create("Header", 100);
    const auto write = [](std::streamoff at, std::uint64_t value, std::streamsize size) {
        std::fstream file(ObjectFile("Header"), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(at).write(reinterpret_cast<const char*>(&value), size);
    };
    // The size of the data, whose true value is 100: more than there is, none, and one that overflows.
    for (const std::uint64_t size : {std::uint64_t{5000}, std::uint64_t{0}, ~std::uint64_t{0}}) {
        write(24, size, 8);
        EXPECT_FAILS(Open("Header"), ERROR_INVALID_HANDLE);
    }
    write(24, 100, 8);
    for (const std::uint32_t length : {0u, 261u, ~0u}) {
        write(20, length, 4); // of the name
        EXPECT_FAILS(Create("Header", 100), ERROR_INVALID_HANDLE);
    }
    write(20, 6, 4);
    EXPECT_TRUE(Open("Header"));
    // Things that are no object file at all; a dead one is replaced.
    fs::create_directory(ObjectFile("Folder"));
    ASSERT_EQ(mkfifo(ObjectFile("Fifo").c_str(), 0600), 0);
    fs::create_symlink("/etc/hostname", ObjectFile("Link"));
    std::ofstream(ObjectFile("Text")) << "text";
    for (const char* name : {"Folder", "Link"}) {
        EXPECT_FALSE(Open(name));
        EXPECT_FALSE(Create(name, 100));
    }
    for (const char* name : {"Fifo", "Text"}) {
        EXPECT_FAILS(Open(name), ERROR_FILE_NOT_FOUND);
        EXPECT_TRUE(Create(name, 100));
    }
}

TEST(SectionFault, ASectionThatTheDiskHasNoRoomForIsNotMade)
{
    Create("First", 1); // makes the folder
    if (!MountSmallDisk(ObjectFile(), "64k"))
        GTEST_SKIP() << "needs the right to mount";
    for (const DWORD size : {100'000u, 1'000'000u}) {
        EXPECT_FAILS(Create("Large", size), ERROR_COMMITMENT_LIMIT);
        EXPECT_FAILS(Open("Large"), ERROR_FILE_NOT_FOUND);
    }
    EXPECT_TRUE(fs::is_empty(ObjectFile()));
    const KernelHandle section = Create("Small", 50'000);
    const MappedView view = Map(section);
    ASSERT_TRUE(view);
    std::memset(view.Get(), 1, 50'000);
    EXPECT_FAILS(Create("Next", 50'000), ERROR_COMMITMENT_LIMIT);
}
