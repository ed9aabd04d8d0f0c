// Libraries that load late, never, or vanish meanwhile; real ones, with the trace they leave.
#include "engine/DynLib.h"

#include "engine/ArdScanLib.h"
#include "engine/Wow64FsRedir.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr const char* kEnter = "40 DynLib.cpp: [Enter] Module::RetryLoad()...";
constexpr const char* kLeave = "40 DynLib.cpp: [Leave] Module::RetryLoad()...";

std::string Retry(int attempt)
{
    return "40 DynLib.cpp: *** Module::RetryLoad() - Star Retry for ::LoadLibrary() Retry[" + std::to_string(attempt) +
           "]";
}

class FlakyLibrary : public testing::Test
{
protected:
    FlakyLibrary()
    {
        std::filesystem::copy_file(vlt::test::ProgramFolder() / "FlakyLibrary.dll", m_folder.HostPath("flaky.dll"));
        Traced([] {}); // loads the trace library, whose initialisation is not part of a test
    }
    ~FlakyLibrary() override { Fail(0); }

    void Fail(std::size_t times, bool takeFileAway = false)
    {
        SetEnvironmentVariableW(TEXT("FLAKY_FAILURES"), times == 0 ? nullptr : WString(times, TEXT('x')).c_str());
        SetEnvironmentVariableW(TEXT("FLAKY_FILE"), takeFileAway ? m_file.c_str() : nullptr);
    }

    std::string Success(const Module& module) const
    {
        return vlt::Format("40 DynLib.cpp: Success: LoadLibrary(%s): %p", vlt::ToNarrow(m_file), module.Handle());
    }

    vlt::test::TempFolder m_folder;
    WString m_file = m_folder.PathW("flaky.dll");
    DynLib m_library;
    bool m_loaded = false;
};

TEST_F(FlakyLibrary, IsLoadedAfterThreeRetries)
{
    Fail(3);
    const Lines lines = Traced([&] { m_loaded = m_library.Load(m_file.c_str()); });
    EXPECT_TRUE(m_loaded);
    EXPECT_EQ(lines, (Lines{kEnter, Retry(0), Retry(1), Retry(2),
                            "40 DynLib.cpp: *** Module::RetryLoad() - ::LoadLibrary() was success. Retry[2]", kLeave,
                            "40 DynLib.cpp: *** Module::Load() - RetryLoad() was success.", Success(m_library)}));
    EXPECT_TRUE(m_library.Free());
    EXPECT_EQ(m_library.Handle(), nullptr);
}

TEST_F(FlakyLibrary, IsGivenUpAfterTenRetries)
{
    Fail(11);
    Lines expected{kEnter};
    for (int attempt = 0; attempt < 10; ++attempt)
        expected.push_back(Retry(attempt));
    expected.insert(expected.end(), {kLeave, "20 DynLib.cpp: *** Module::Load() - RetryLoad() was failed."});
    EXPECT_EQ(Traced([&] { m_loaded = m_library.Load(m_file.c_str()); }), expected);
    EXPECT_FALSE(m_loaded);
    EXPECT_EQ(m_library.Handle(), nullptr);
    // Eleven loads used up the eleven failures.
    EXPECT_TRUE(m_library.Load(m_file.c_str()));
}

TEST_F(FlakyLibrary, AnotherErrorEndsTheRetries)
{
    Fail(2, true);
    const Lines lines = Traced([&] { m_loaded = m_library.Load(m_file.c_str()); });
    EXPECT_FALSE(m_loaded);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 3), (Lines{kEnter, Retry(0), Retry(1)}));
    EXPECT_TRUE(lines[3].starts_with("20 DynLib.cpp: *** Module::RetryLoad() - ::LoadLibrary() was failed. [0x000000"))
        << lines[3];
    EXPECT_TRUE(lines[3].ends_with("] Retry[1]")) << lines[3];
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
              (Lines{kLeave, "20 DynLib.cpp: *** Module::Load() - RetryLoad() was failed."}));
}

TEST_F(FlakyLibrary, MissingLibraryIsNotRetried)
{
    const Lines lines = Traced([&] { m_loaded = m_library.Load(TEXT("C:\\no such folder\\none.dll")); });
    EXPECT_FALSE(m_loaded);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("20 DynLib.cpp:   Failed: LoadLibrary(C:\\no such folder\\none.dll): (0x000000"))
        << lines[0];
}

TEST_F(FlakyLibrary, LibraryThatCannotBeFreedIsKept)
{
    EXPECT_TRUE(m_library.Free()); // holds nothing
    ASSERT_TRUE(m_library.Load(m_file.c_str()));
    const HMODULE held = m_library.Handle();
    ASSERT_TRUE(FreeLibrary(held)); // behind its back
    const Lines lines = Traced([&] { m_loaded = m_library.Load(m_file.c_str()); });
    EXPECT_FALSE(m_loaded);
    EXPECT_EQ(m_library.Handle(), held);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].starts_with(vlt::Format("20 DynLib.cpp: Failed: FreeLibrary(%p): 0x", held))) << lines[0];
    EXPECT_EQ(lines[1], "20 DynLib.cpp: *** Module::Load() - Free() was failed.");
}

TEST_F(FlakyLibrary, EntryPointsFollowTheLibrary)
{
    CArdScanLib library;
    EXPECT_TRUE(library.Load(m_file.c_str()));
    EXPECT_TRUE(library.IsInit());
    EXPECT_NE(library.ASGetPatternInformation, nullptr);
    EXPECT_FALSE(library.Load(TEXT("C:\\none.dll"))); // frees the first, then finds nothing
    EXPECT_FALSE(library.IsInit());
    EXPECT_EQ(library.ASGetPatternInformation, nullptr);
}

TEST(Kernel32, IsUsableWithoutTheFunctionThatSystemsLack)
{
    Kernel32 kernel32;
    ASSERT_TRUE(kernel32.Load(TEXT("kernel32.dll")));
    EXPECT_EQ(kernel32.IsInit(), kernel32.RegisterServiceProcess != nullptr);
    ASSERT_NE(kernel32.IsWow64Process, nullptr);
    BOOL wow64 = TRUE;
    EXPECT_TRUE(kernel32.IsWow64Process(GetCurrentProcess(), &wow64));
    EXPECT_FALSE(wow64);
    CWow64FsRedir redirection;
    EXPECT_FALSE(redirection.IsWow64());
}

} // namespace
