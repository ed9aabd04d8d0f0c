// The binding of the pattern library, with copies of one from which an entry point is taken away.
#include "engine/KsapiDllLib.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

namespace
{

using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr char kLibrary[] = VLT_RECORDING_FOLDER "/Ksapi64.dll";

TEST(KsapiDllLib, NeedsEveryEntryPoint)
{
    for (const std::string missing :
         {"KSGetLastPattern", "KSGetLastPatternW", "KSDeleteUnusedPattern", "KSGetDefaultExtListSize",
          "KSGetDefaultExtList", "KSGetPatternInternalVersion", "KSInit", "KSGetVersion"}) {
        SCOPED_TRACE(missing);
        const vlt::test::TempFolder folder;
        std::string bytes = vlt::test::ReadBytes(kLibrary);
        // Export tables are sorted, and so they stay when a name gives way to the one just before it.
        for (std::size_t at = 0; (at = bytes.find('\0' + missing + '\0', at)) != bytes.npos;)
            --bytes[at + missing.size()];
        vlt::test::WriteBytes(folder.HostPath("Ksapi64.dll"), bytes);
        {
            CKsapiDllLib library;
            const Lines lines =
                Traced([&] { EXPECT_FALSE(library.InitA((vlt::ToNarrow(folder.PathW()) + '\\').c_str())); });
            EXPECT_EQ(lines, (Lines{vlt::Format("40 DynLib.cpp: Success: LoadLibrary(%s): %p",
                                                vlt::ToNarrow(folder.PathW("Ksapi64.dll")), library.Handle()),
                                    "20 KsapiDllLib.cpp: CKsapiDllLib::InitW() - this->IsInit() failed.",
                                    "20 KsapiDllLib.cpp: CKsapiDllLib::InitA() - this->InitW() failed."}));
        }
        EXPECT_EQ(GetModuleHandleW(folder.PathW("Ksapi64.dll").c_str()), nullptr) << "is freed";
    }
}

TEST(KsapiDllLib, IsLoadedFromTheFolderGiven)
{
    const vlt::test::TempFolder folder;
    std::filesystem::copy_file(kLibrary, folder.HostPath("Ksapi64.dll"));
    CKsapiDllLib library;
    EXPECT_FALSE(library.IsInit());
    EXPECT_TRUE(library.InitW(folder.PathW().c_str()));
    EXPECT_TRUE(library.IsInit());
    EXPECT_EQ(library.KSInit(""), 0);
    const Lines lines = Traced([&] { EXPECT_FALSE(library.InitW(folder.PathW("none").c_str())); });
    EXPECT_EQ(lines.at(1), "20 KsapiDllLib.cpp: CKsapiDllLib::InitW() - this->Load() failed.");
    EXPECT_EQ(library.KSInit, nullptr) << "nothing is left to be called";
    EXPECT_NE(Traced([&] { library.InitA(""); }).at(0).find("LoadLibrary(Ksapi64.dll): "), std::string::npos);
}

} // namespace
