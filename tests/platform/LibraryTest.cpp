// Loading, counting and freeing libraries, and what is no library.
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace
{

using vlt::LibraryHandle;
using vlt::test::TempFolder;
using vlt::test::WriteBytes;

WString Seen()
{
    WCHAR text[64] = {};
    return WString(text, GetEnvironmentVariableW(TEXT("VLT_SAMPLE"), text, 64));
}

WString ModulePath(HMODULE module)
{
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(module, path, MAX_PATH);
    return WString(path, length);
}

template <typename Function>
Function Resolve(HMODULE module, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

class LibraryTest : public testing::Test
{
protected:
    LibraryTest() { SetEnvironmentVariableW(TEXT("VLT_SAMPLE"), nullptr); }
};

TEST_F(LibraryTest, IsLoadedOnceAndFreedWithTheLastCount)
{
    const HMODULE first = LoadLibraryW(TEXT("SampleGood.dll"));
    ASSERT_NE(first, nullptr) << GetLastError();
    EXPECT_EQ(LoadLibraryW(TEXT("samplegood.DLL")), first);
    EXPECT_EQ(LoadLibraryW(ModulePath(first).c_str()), first);
    EXPECT_EQ(LoadLibraryW(TEXT("SampleGood")), first);
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleGood.dll")), first);
    EXPECT_EQ(Seen(), TEXT("A"));
    EXPECT_EQ(Resolve<int (*)()>(first, "SampleAnswer")(), 41);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(Seen(), TEXT("A"));
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(Seen(), TEXT("AD"));
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleGood.dll")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_FALSE(FreeLibrary(first));
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(GetModuleFileNameW(first, nullptr, 0), 0u);
}

TEST_F(LibraryTest, OneThatRefusesToStartIsUnloaded)
{
    EXPECT_EQ(LoadLibraryW(TEXT("SampleRefusing.dll")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_DLL_INIT_FAILED);
    EXPECT_EQ(Seen(), TEXT("AD"));
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleRefusing.dll")), nullptr);
    EXPECT_EQ(LoadLibraryW(TEXT("SampleRefusing.dll")), nullptr);
    EXPECT_EQ(Seen(), TEXT("ADAD"));
}

TEST_F(LibraryTest, MissingOnesAndMissingFunctions)
{
    const TempFolder folder;
    for (const WString& name : {WString(TEXT("NoSuchLibrary.dll")), folder.PathW("x.dll"), folder.PathW("no\\x.dll")}) {
        EXPECT_EQ(LoadLibraryW(name.c_str()), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    }
    const LibraryHandle good(LoadLibraryW(TEXT("SampleGood.dll")));
    EXPECT_EQ(GetProcAddress(good.Get(), "sampleanswer"), nullptr); // names have a case
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(good.Get(), "malloc"), nullptr); // of what it depends on
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
}

// Broken downloads: every length of a real library, and bytes that are none. The host's own loader
// would die on some of these.
TEST_F(LibraryTest, WhatIsNoLibraryIsRefused)
{
    const TempFolder folder;
    const std::string whole = vlt::test::ReadBytes(vlt::test::ProgramFolder() / "SampleGood.dll");
    ASSERT_GT(whole.size(), 4096u);
    std::vector<std::string> broken = {"", "not a library", std::string("MZ"),
                                       std::string("\x7F"
                                                   "ELF",
                                                   4)};
    for (const std::size_t length :
         {std::size_t{52}, std::size_t{64}, std::size_t{500}, std::size_t{2000}, std::size_t{4096}})
        broken.push_back(whole.substr(0, length));
    for (std::size_t i = 0; i < broken.size(); ++i) {
        const std::string name = "broken" + std::to_string(i) + ".dll";
        WriteBytes(folder.HostPath(name), broken[i]);
        EXPECT_EQ(LoadLibraryW(folder.PathW(name).c_str()), nullptr) << i;
        EXPECT_EQ(GetLastError(), ERROR_BAD_EXE_FORMAT) << i;
    }
}

TEST_F(LibraryTest, TheProgramIsAModule)
{
    const WString path = ModulePath(nullptr);
    EXPECT_EQ(path.find(TEXT('/')), WString::npos);
    EXPECT_NE(path.find(TEXT("\\library_test")), WString::npos);
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(ModulePath(GetModuleHandleW(nullptr)), path);
    WCHAR small[5] = {};
    EXPECT_EQ(GetModuleFileNameW(nullptr, small, 4), 4u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
#ifndef _WIN32 // Wine fills the buffer to its last unit
    EXPECT_EQ(WString(small), path.substr(0, 3));
#endif
}

TEST_F(LibraryTest, TheSystemsOwnModules)
{
    const LibraryHandle kernel(LoadLibraryW(TEXT("kernel32.dll")));
    const LibraryHandle again(LoadLibraryW(TEXT("KERNEL32")));
    ASSERT_TRUE(kernel);
    EXPECT_EQ(kernel.Get(), again.Get());
    for (const char* name : {"IsWow64Process", "Wow64DisableWow64FsRedirection", "Wow64RevertWow64FsRedirection",
                             "GetSystemWow64DirectoryA", "GetSystemWow64DirectoryW", "GetNativeSystemInfo"})
        EXPECT_NE(GetProcAddress(kernel.Get(), name), nullptr) << name;
#ifndef _WIN32 // Wine has it, as the oldest systems did
    EXPECT_EQ(GetProcAddress(kernel.Get(), "RegisterServiceProcess"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
#endif

    BOOL wow64 = TRUE;
    EXPECT_TRUE(Resolve<BOOL(WINAPI*)(HANDLE, LPBOOL)>(kernel.Get(), "IsWow64Process")(GetCurrentProcess(), &wow64));
    EXPECT_FALSE(wow64);
    WCHAR folder[MAX_PATH] = {};
    const UINT length =
        Resolve<UINT(WINAPI*)(LPWSTR, UINT)>(kernel.Get(), "GetSystemWow64DirectoryW")(folder, MAX_PATH);
    EXPECT_EQ(static_cast<UINT>(lstrlenW(folder)), length);
    EXPECT_EQ(WString(folder).substr(0, 3), TEXT("C:\\"));

    const LibraryHandle advapi(LoadLibraryW(TEXT("advapi32.dll")));
    const auto status = Resolve<BOOL(WINAPI*)(LPCWSTR, LPDWORD)>(advapi.Get(), "FileEncryptionStatusW");
    ASSERT_NE(status, nullptr);
    EXPECT_NE(GetProcAddress(advapi.Get(), "FileEncryptionStatusA"), nullptr);
#ifndef _WIN32 // Wine answers 6, "unknown", for every file
    DWORD value = 99;
    EXPECT_TRUE(status(ModulePath(nullptr).c_str(), &value));
    EXPECT_EQ(value, 0u);
    EXPECT_FALSE(status(u"C:\\none", &value));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
#endif
}

TEST_F(LibraryTest, ManyThreadsLoadAndFree)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                const LibraryHandle library(LoadLibraryW(TEXT("SampleGood.dll")));
                ASSERT_TRUE(library);
                ASSERT_NE(GetProcAddress(library.Get(), "SampleAnswer"), nullptr);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleGood.dll")), nullptr);
}

#ifndef _WIN32
TEST_F(LibraryTest, HandlesAreNeverUsedTwice)
{
    const HMODULE first = LoadLibraryW(u"SampleGood.dll");
    FreeLibrary(first);
    const LibraryHandle second(LoadLibraryW(u"SampleGood.dll"));
    EXPECT_NE(second.Get(), first);
    EXPECT_EQ(GetProcAddress(first, "SampleAnswer"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}
#endif

} // namespace
