#include "tests/platform/RegistryTest.h"

#include <algorithm>

using namespace vlt;
using namespace vlt::test;

using RegistryKeys = RegistryTest;

TEST_F(RegistryKeys, OpenFindsAndCreateMakesAllLevels)
{
    EXPECT_FALSE(Open(Key(), TEXT("One\\Two")));
    RegKey made;
    DWORD disposition = 0;
    const auto create = [&](const WCHAR* path) {
        return Code(RegCreateKeyExW(Key(), path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, made.Receive(), &disposition));
    };
    EXPECT_EQ(ERROR_SUCCESS, create(TEXT("One\\Two\\Three")));
    EXPECT_EQ(DWORD{REG_CREATED_NEW_KEY}, disposition);
    EXPECT_EQ(ERROR_SUCCESS, create(TEXT("ONE\\two\\THREE\\")));
    EXPECT_EQ(DWORD{REG_OPENED_EXISTING_KEY}, disposition);
    EXPECT_EQ(ERROR_SUCCESS, Set(made.Get(), TEXT("v"), "x"));
    EXPECT_EQ("x", Get(Open(Key(), TEXT("one\\TWO\\three")).Get(), TEXT("V")));
    EXPECT_EQ(std::vector<WString>{TEXT("Two")}, SubKeys(Open(Key(), TEXT("one")).Get()));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Code(RegOpenKeyExW(Key(), TEXT("One\\x"), 0, KEY_READ, made.Receive())));
}

TEST_F(RegistryKeys, SoftwareHasTwoViewsAndSystemOne)
{
    const WString name = Path().substr(WString(TEXT("SOFTWARE\\")).size());
    const RegKey in32 = Create(HKEY_LOCAL_MACHINE, TEXT("Software\\") + name, KEY_ALL_ACCESS | KEY_WOW64_32KEY);
    EXPECT_EQ(ERROR_SUCCESS, Set(in32.Get(), TEXT("v"), "32"));
    EXPECT_EQ("<2>", Get(Key(), TEXT("v")));
    EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "64"));
    for (const WCHAR* software : {TEXT("software\\"), TEXT("SoftWare\\")}) {
        const WString path = software + name;
        EXPECT_EQ("64", Get(Open(HKEY_LOCAL_MACHINE, path, KEY_READ | KEY_WOW64_64KEY).Get(), TEXT("v")));
        EXPECT_EQ("32", Get(Open(HKEY_LOCAL_MACHINE, path, KEY_READ | KEY_WOW64_32KEY).Get(), TEXT("v")));
    }
    // What is opened from a key of a view stays in it.
    const RegKey sub = Create(in32.Get(), TEXT("sub"), KEY_ALL_ACCESS | KEY_WOW64_32KEY);
    EXPECT_FALSE(Open(Key(), TEXT("sub")));

    const WString system = TEXT("SYSTEM\\VltTestViews");
    const RegKey one = Create(HKEY_LOCAL_MACHINE, system);
    EXPECT_EQ(ERROR_SUCCESS, Set(one.Get(), TEXT("v"), "one"));
    EXPECT_EQ("one", Get(Open(HKEY_LOCAL_MACHINE, system, KEY_READ | KEY_WOW64_32KEY).Get(), TEXT("v")));
    RemoveTree(HKEY_LOCAL_MACHINE, system);
}

TEST_F(RegistryKeys, AHandleHasTheRightsItWasOpenedWith)
{
    EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "x"));
    const RegKey reader = Open(HKEY_LOCAL_MACHINE, Path(), KEY_READ);
    EXPECT_EQ("x", Get(reader.Get(), TEXT("v")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, Set(reader.Get(), TEXT("v"), "y"));
    const RegKey writer = Open(HKEY_LOCAL_MACHINE, Path(), KEY_SET_VALUE);
    EXPECT_EQ(ERROR_SUCCESS, Set(writer.Get(), TEXT("v"), "z"));
    EXPECT_EQ("<5>", Get(writer.Get(), TEXT("v")));

    const HKEY stale = Open(HKEY_LOCAL_MACHINE, Path(), KEY_READ).Release();
    EXPECT_EQ(ERROR_SUCCESS, Code(RegCloseKey(stale)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, Code(RegCloseKey(stale)));
    EXPECT_EQ("<6>", Get(stale, TEXT("v")));
}

TEST_F(RegistryKeys, DeletingTakesLeavesOnlyAndEndsOpenHandles)
{
    const RegKey parent = Create(Key(), TEXT("Parent"));
    const RegKey child = Create(parent.Get(), TEXT("Child"));
    EXPECT_EQ(ERROR_SUCCESS, Set(child.Get(), TEXT("v"), "x"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, Code(RegDeleteKeyExW(Key(), TEXT("parent"), 0, 0)));
    EXPECT_EQ(ERROR_SUCCESS, Code(RegDeleteKeyExW(Key(), TEXT("PARENT\\child"), 0, 0)));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Code(RegDeleteKeyExW(Key(), TEXT("Parent\\Child"), 0, 0)));
    const auto expectGone = [&] {
        EXPECT_EQ("<1018>", Get(child.Get(), TEXT("v")));
        EXPECT_EQ(ERROR_KEY_DELETED, Set(child.Get(), TEXT("v"), "y"));
        EXPECT_EQ(ERROR_KEY_DELETED, Set(child.Get(), TEXT("new"), "y"));
        RegKey below;
        EXPECT_EQ(ERROR_KEY_DELETED, Code(RegCreateKeyW(child.Get(), TEXT("below"), below.Receive())));
        EXPECT_EQ(ERROR_KEY_DELETED, Code(RegOpenKeyExW(child.Get(), TEXT("b"), 0, KEY_READ, below.Receive())));
    };
    expectGone();
    const RegKey again = Create(parent.Get(), TEXT("child"));
    expectGone();
    EXPECT_EQ("<2>", Get(again.Get(), TEXT("v")));
    EXPECT_EQ(std::vector<WString>{TEXT("child")}, SubKeys(parent.Get()));
}

// Names that mean something to a file system, or that it could not hold.
TEST_F(RegistryKeys, AnyNameIsAName)
{
    const WString names[] = {
        TEXT(".."),       TEXT("a/b"),       TEXT("a%2fb"),           TEXT(".name"),
        TEXT("x~y@32"),   TEXT("tab\there"), WString(255, TEXT('W')), WString(254, TEXT('W')) + TEXT('V'),
        {0x00DC, 0x20AC}, {0xD83D, 0xDE00}, // a currency sign, and one character of two units
    };
    for (const WString& name : names) {
        const RegKey key = Create(Key(), name);
        EXPECT_EQ(ERROR_SUCCESS, Set(key.Get(), name.c_str(), ToNarrow(name, CP_UTF8)));
    }
    std::vector<WString> found = SubKeys(Key());
    EXPECT_EQ(std::size(names), found.size());
    for (const WString& name : names) {
        EXPECT_NE(found.end(), std::find(found.begin(), found.end(), name)) << ToNarrow(name, CP_UTF8);
        EXPECT_EQ(ToNarrow(name, CP_UTF8), Get(Open(Key(), name).Get(), name.c_str()));
    }
    EXPECT_TRUE(Open(Key(), {0x00FC, 0x20AC})) << "case of letters beyond ASCII";
    EXPECT_FALSE(Open(Key(), WString(253, TEXT('W'))));
    WCHAR name[1];
    DWORD length = 1;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, Code(RegEnumKeyExW(Key(), 10, name, &length, nullptr, nullptr, nullptr, nullptr)));
    EXPECT_EQ(ERROR_MORE_DATA, Code(RegEnumKeyExW(Key(), 3, name, &length, nullptr, nullptr, nullptr, nullptr)));
}
