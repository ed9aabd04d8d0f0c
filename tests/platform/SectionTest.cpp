#include "tests/platform/Waiter.h"

#include <algorithm>
#include <cstring>

using namespace vlt::test;
using vlt::KernelHandle;
using vlt::MappedView;

namespace
{

KernelHandle Create(const std::string& name, DWORD size)
{
    return KernelHandle(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                                           name.empty() ? nullptr : name.c_str()));
}
KernelHandle Open(const std::string& name, DWORD access = FILE_MAP_ALL_ACCESS)
{
    return KernelHandle(OpenFileMappingA(access, FALSE, name.c_str()));
}
MappedView Map(const KernelHandle& section, DWORD access = FILE_MAP_ALL_ACCESS, SIZE_T size = 0)
{
    return MappedView(MapViewOfFile(section.Get(), access, 0, 0, size));
}
char* Bytes(const MappedView& view)
{
    return static_cast<char*>(view.Get());
}
SIZE_T RegionSize(const void* address)
{
    MEMORY_BASIC_INFORMATION region{};
    return VirtualQuery(address, &region, sizeof region) == sizeof region ? region.RegionSize : 0;
}

} // namespace

TEST(Section, AnExistingOneIsOpenedWithItsSizeAndContents)
{
    const std::string name = NarrowName("Twice");
    const KernelHandle first = Create(name, 5000);
    ASSERT_TRUE(first);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    const MappedView view = Map(first);
    ASSERT_TRUE(view);
    EXPECT_TRUE(std::all_of(Bytes(view), Bytes(view) + 8192, [](char c) { return c == 0; }));
    std::strcpy(Bytes(view), "kept");
    for (const DWORD size : {1u, 5000u, 100000u}) {
        const KernelHandle again = Create(name, size);
        ASSERT_TRUE(again);
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        const MappedView other = Map(again);
        ASSERT_TRUE(other);
        EXPECT_NE(other.Get(), view.Get());
        EXPECT_STREQ(Bytes(other), "kept");
        EXPECT_EQ(RegionSize(other.Get()), 8192u);
    }
    EXPECT_FAILS(Create(name, 0), ERROR_INVALID_PARAMETER);
    const KernelHandle unnamed = Create("", 100);
    const MappedView a = Map(unnamed);
    const MappedView b = Map(unnamed, FILE_MAP_READ);
    ASSERT_TRUE(a && b);
    std::strcpy(Bytes(a), "seen");
    EXPECT_STREQ(Bytes(b), "seen");
}

TEST(Section, ViewsAreWholePagesWithTheAccessAskedFor)
{
    const std::string name = NarrowName("Views");
    const KernelHandle section = Create(name, 100);
    const MappedView view = Map(section, FILE_MAP_WRITE, 50);
    const MappedView readOnly = Map(section, FILE_MAP_READ, 4096);
    ASSERT_TRUE(view && readOnly);
    EXPECT_FAILS(Map(section, FILE_MAP_WRITE, 4097), ERROR_ACCESS_DENIED);
    MEMORY_BASIC_INFORMATION region{};
    ASSERT_EQ(VirtualQuery(Bytes(readOnly) + 5, &region, sizeof region), sizeof region);
    EXPECT_EQ(region.BaseAddress, readOnly.Get());
    EXPECT_EQ(region.AllocationBase, readOnly.Get());
    EXPECT_EQ(region.RegionSize, 4096u);
    EXPECT_EQ(region.State, static_cast<DWORD>(MEM_COMMIT));
    EXPECT_EQ(region.Protect, static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(region.Type, static_cast<DWORD>(MEM_MAPPED));
    // A handle maps what it was opened for.
    const KernelHandle reading = Open(name, FILE_MAP_READ);
    EXPECT_FAILS(Map(reading, FILE_MAP_WRITE), ERROR_ACCESS_DENIED);
    EXPECT_FAILS(Map(reading), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Map(reading, FILE_MAP_READ));
    EXPECT_FAILS(Map(MakeEvent(true)), ERROR_INVALID_HANDLE);

    MappedView again = Map(section);
    EXPECT_TRUE(UnmapViewOfFile(Bytes(again) + 10));
    EXPECT_FAILS(UnmapViewOfFile(again.Release()), ERROR_INVALID_ADDRESS);
}

TEST(Section, TheNameGoesWithTheLastHandleAndTheMemoryWithTheLastView)
{
    const std::string name = NarrowName("Life");
    EXPECT_FAILS(Open(name), ERROR_FILE_NOT_FOUND);
    KernelHandle first = Create(name, 100);
    const MappedView old = Map(first);
    std::strcpy(Bytes(old), "old");
    KernelHandle second = Open(name, FILE_MAP_READ);
    first.Reset();
    EXPECT_TRUE(Open(name));
    second.Reset();
    EXPECT_FAILS(Open(name), ERROR_FILE_NOT_FOUND);
    // The same name is another section now, of another size.
    for (const DWORD size : {9000u, 100u}) {
        const KernelHandle fresh = Create(name, size);
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        const MappedView view = Map(fresh);
        EXPECT_EQ(RegionSize(view.Get()), size == 100 ? 4096u : 12288u);
        EXPECT_STREQ(Bytes(view), "");
        std::strcpy(Bytes(view), "fresh");
        EXPECT_STREQ(Bytes(old), "old");
    }
}

// create|open <name> <size>: writes its error, then a text into the section; ends with its input.
VLT_CHILD(section_user)
{
    const KernelHandle section =
        args[0] == "create" ? Create(args[1], static_cast<DWORD>(std::stoul(args[2]))) : Open(args[1]);
    std::printf("%lu\n", static_cast<unsigned long>(GetLastError()));
    const MappedView view = Map(section);
    if (!view)
        return 1;
    std::strcpy(Bytes(view), "from a child");
    std::puts("written");
    return StayUntilInputEnds();
}

TEST(Section, ProcessesShareItAndAKilledOneTakesItsNameAlong)
{
    const std::string name = NarrowName("Killed");
    for (int round = 0; round < 3; ++round) {
        const SIZE_T pages = round % 2 == 0 ? 1 : 3; // another section under the same name each time
        Child creator("section_user", {"create", name, std::to_string(pages * 4096 - 100)});
        ASSERT_EQ(creator.ReadLine(), "0"); // new each time
        ASSERT_EQ(creator.ReadLine(), "written");
        MappedView view;
        {
            const KernelHandle section = Open(name);
            view = Map(section);
            ASSERT_TRUE(view);
        }
        EXPECT_EQ(RegionSize(view.Get()), pages * 4096);
        EXPECT_STREQ(Bytes(view), "from a child");
        Bytes(view)[0] = '\0';
        Child second("section_user", {"open", name});
        EXPECT_EQ(second.ReadLine(), "0");
        EXPECT_EQ(second.ReadLine(), "written");
        EXPECT_STREQ(Bytes(view), "from a child");
        second.CloseInput();
        second.Wait(kSoon);
        EXPECT_TRUE(Open(name));
        creator.Kill();
        creator.Wait(kSoon);
        EXPECT_TRUE(Eventually(kSoon, [&] { return !Open(name); }));
        EXPECT_STREQ(Bytes(view), "from a child"); // memory lives on
    }
}
