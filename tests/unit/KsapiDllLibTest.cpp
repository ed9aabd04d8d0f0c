// The binding of the pattern library, with copies of a real one from which an entry point is taken away.
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

class KsapiDllLib : public testing::Test
{
protected:
    // Renames the export to one just before it in the alphabet, since export tables are sorted.
    void Install(const std::string& missing = {})
    {
        std::string bytes = vlt::test::ReadBytes(VLT_PATTERN_LIBRARY);
        const std::string entry = '\0' + missing + '\0';
        for (std::size_t at = missing.empty() ? bytes.npos : 0; (at = bytes.find(entry, at)) != bytes.npos;)
            --bytes[at + missing.size()];
        vlt::test::WriteBytes(m_folder.HostPath("Ksapi64.dll"), bytes);
    }

    std::string Success() const
    {
        return vlt::Format("40 DynLib.cpp: Success: LoadLibrary(%s): %p", vlt::ToNarrow(m_file),
                           GetModuleHandleW(m_file.c_str()));
    }

    vlt::test::TempFolder m_folder;
    const WString m_file = m_folder.PathW("Ksapi64.dll");
};

TEST_F(KsapiDllLib, NeedsEveryEntryPoint)
{
    for (const char* missing :
         {"KSGetLastPattern", "KSGetLastPatternW", "KSDeleteUnusedPattern", "KSGetDefaultExtListSize",
          "KSGetDefaultExtList", "KSGetPatternInternalVersion", "KSInit", "KSGetVersion"}) {
        SCOPED_TRACE(missing);
        Install(missing);
        {
            CKsapiDllLib library;
            bool usable = true;
            const Lines lines = Traced([&] { usable = library.InitA(vlt::ToNarrow(m_folder.PathW()).c_str()); });
            EXPECT_FALSE(usable);
            EXPECT_FALSE(library.IsInit());
            EXPECT_EQ(lines, (Lines{Success(), "20 KsapiDllLib.cpp: CKsapiDllLib::InitW() - this->IsInit() failed.",
                                    "20 KsapiDllLib.cpp: CKsapiDllLib::InitA() - this->InitW() failed."}));
            void* const pointers[] = {
                reinterpret_cast<void*>(library.KSGetLastPattern),
                reinterpret_cast<void*>(library.KSGetLastPatternW),
                reinterpret_cast<void*>(library.KSDeleteUnusedPattern),
                reinterpret_cast<void*>(library.KSGetDefaultExtListSize),
                reinterpret_cast<void*>(library.KSGetDefaultExtList),
                reinterpret_cast<void*>(library.KSGetPatternInternalVersion),
                reinterpret_cast<void*>(library.KSInit),
                reinterpret_cast<void*>(library.KSGetVersion),
            };
            EXPECT_EQ(std::count(std::begin(pointers), std::end(pointers), nullptr), 1);
        }
        EXPECT_EQ(GetModuleHandleW(m_file.c_str()), nullptr) << "is freed";
    }
}

TEST_F(KsapiDllLib, IsLoadedFromTheFolderGiven)
{
    Install();
    const std::string folder = vlt::ToNarrow(m_folder.PathW());
    CKsapiDllLib library;
    EXPECT_FALSE(library.IsInit());
    for (const std::string& form : {folder, folder + '\\'}) {
        bool usable = false;
        const Lines lines = Traced([&] { usable = library.InitA(form.c_str()); });
        EXPECT_TRUE(usable);
        EXPECT_TRUE(library.IsInit());
        EXPECT_EQ(lines, Lines{Success()});
    }
    KsVersion version{};
    EXPECT_EQ(library.KSGetVersion(&version), 0);
    EXPECT_EQ(version.build, 1200u);

    // A failed load leaves nothing to be called.
    const Lines lines = Traced([&] { library.InitW(m_folder.PathW("no folder").c_str()); });
    EXPECT_FALSE(library.IsInit());
    EXPECT_EQ(library.KSGetVersion, nullptr);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "20 KsapiDllLib.cpp: CKsapiDllLib::InitW() - this->Load() failed.");
    const Lines bare = Traced([&] { library.InitA(""); });
    EXPECT_NE(bare.at(0).find("LoadLibrary(Ksapi64.dll): "), std::string::npos) << bare[0];
}

} // namespace
