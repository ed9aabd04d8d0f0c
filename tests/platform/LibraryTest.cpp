// Loading, counting and freeing libraries, and what is no library.
#include "tests/platform/Files.h"

#include <thread>

using namespace vlt::test;

namespace
{

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
    EXPECT_FAILS(GetProcAddress(first, "sampleanswer"), ERROR_PROC_NOT_FOUND);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(Seen(), TEXT("A"));
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(Seen(), TEXT("AD"));
    EXPECT_FAILS(GetModuleHandleW(TEXT("SampleGood.dll")), ERROR_MOD_NOT_FOUND);
    EXPECT_FAILS(FreeLibrary(first), ERROR_MOD_NOT_FOUND);
#ifndef _WIN32 // Windows uses handles again
    const vlt::LibraryHandle again(LoadLibraryW(TEXT("SampleGood.dll")));
    EXPECT_NE(again.Get(), first);
#endif
}

TEST_F(LibraryTest, OneThatRefusesToStartIsUnloaded)
{
    EXPECT_FAILS(LoadLibraryW(TEXT("SampleRefusing.dll")), ERROR_DLL_INIT_FAILED);
    EXPECT_EQ(Seen(), TEXT("AD"));
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleRefusing.dll")), nullptr);
}

// Broken downloads: every length of a real library, and bytes that are none. The host's own loader
// would die on some of these.
TEST_F(LibraryTest, WhatIsNoLibraryIsRefused)
{
    const TempFolder folder;
    const std::string whole = vlt::test::ReadBytes(vlt::test::ProgramFolder() / "SampleGood.dll");
    ASSERT_GT(whole.size(), 4096u);
    std::vector<std::string> broken = {"", "not a library", "MZ", std::string{0x7F, 'E', 'L', 'F'}};
    for (const unsigned length : {52u, 64u, 500u, 2000u, 4096u})
        broken.push_back(whole.substr(0, length));
    for (std::size_t i = 0; i < broken.size(); ++i) {
        const std::string name = "broken" + std::to_string(i) + ".dll";
        WriteBytes(folder.HostPath(name), broken[i]);
        EXPECT_EQ(LoadLibraryW(folder.PathW(name).c_str()), nullptr) << i;
        EXPECT_EQ(GetLastError(), ERROR_BAD_EXE_FORMAT) << i;
    }
}

TEST_F(LibraryTest, ManyThreadsLoadAndFree)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                const vlt::LibraryHandle library(LoadLibraryW(TEXT("SampleGood.dll")));
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
#endif

} // namespace
