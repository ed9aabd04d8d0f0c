// Version and strings that vlt_resources puts into programs and libraries.
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

WString Version(const WString& path)
{
    DWORD handle = 1;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &handle);
    std::vector<BYTE> data(size);
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
        !VerQueryValueW(data.data(), TEXT("\\"), reinterpret_cast<LPVOID*>(&fixed), &length))
        return {};
    return vlt::Format(TEXT("%d.%d.%d.%d"), fixed->dwFileVersionMS >> 16, fixed->dwFileVersionMS & 0xFFFF,
                       fixed->dwFileVersionLS >> 16, fixed->dwFileVersionLS & 0xFFFF);
}

WString String(HMODULE module, UINT id, int size = 512)
{
    WCHAR text[512] = {};
    const int length = LoadStringW(module, id, text, size);
    return WString(text, static_cast<std::size_t>(length));
}

TEST(ResourceTest, VersionOfTheProgramAndOfAFileThatIsNotLoaded)
{
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    EXPECT_EQ(Version(path), TEXT("15.0.1.1001"));
    const WString folder = WString(path).substr(0, WString(path).rfind(TEXT('\\')) + 1);
    EXPECT_EQ(Version(folder + TEXT("SampleGood.dll")), TEXT("15.0.1.1001"));
    EXPECT_EQ(GetModuleHandleW(TEXT("SampleGood.dll")), nullptr);
    EXPECT_EQ(Version(folder + TEXT("SampleRefusing.dll")), WString()); // has none
}

TEST(ResourceTest, StringsOfTheProgramAndOfALibrary)
{
    EXPECT_EQ(String(nullptr, 1002),
              TEXT("First clause; with a semicolon, second \"quoted\" clause [and brackets, third with C:\\path."));
    EXPECT_EQ(String(nullptr, 1002, 6), TEXT("First"));
    EXPECT_EQ(String(nullptr, 7), WString());
    const vlt::LibraryHandle library(LoadLibraryW(TEXT("SampleGood.dll")));
    EXPECT_EQ(String(library.Get(), 1003), TEXT("\u00DCberpr\u00FCfung"));
}

TEST(ResourceTest, FilesWithoutAVersion)
{
    const vlt::test::TempFolder folder;
    vlt::test::WriteBytes(folder.HostPath("text"), "no program");
    DWORD handle = 0;
    EXPECT_EQ(GetFileVersionInfoSizeW(folder.PathW("text").c_str(), &handle), 0u);
    EXPECT_NE(GetLastError(), 0u);
    EXPECT_EQ(GetFileVersionInfoSizeW(folder.PathW("none").c_str(), &handle), 0u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    // Section tables that point anywhere.
    const std::string whole = vlt::test::ReadBytes(vlt::test::ProgramFolder() / "SampleGood.dll");
    for (std::size_t at = 0; at < 64; ++at) {
        std::string broken = whole;
        broken[at] = static_cast<char>(broken[at] ^ 0x7F);
        vlt::test::WriteBytes(folder.HostPath("broken"), broken);
        Version(folder.PathW("broken"));
    }
}

} // namespace
