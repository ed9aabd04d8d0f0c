// The protection state, told to a real command program in the application folder.
#include "realtime/SecurityCentre.h"
#include "ARDCommon/Registry.h"
#include "ARDCommon/VlUtil.h"
#include "platform/Text.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace
{

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using vlt::test::Traced;

constexpr const WCHAR* kKey = TEXT("Software\\Veltrano\\Ardentis");
constexpr const WCHAR* kValue = TEXT("Application Path");

class SecurityCentre : public testing::Test
{
protected:
    // The folder's name has a blank, and no program lies at the prefix before it.
    SecurityCentre()
    {
        fs::create_directory(m_temp.HostPath("a b"));
        const fs::path recording = VLT_RECORDING_FOLDER;
        fs::copy_file(recording / "ArdCmdCom.exe", m_program);
        const fs::path platform = fs::path(VLT_PLATFORM_LIBRARY);
        if (platform.extension() == ".so")
            fs::copy_file(platform, m_program.parent_path() / platform.filename());
        vlt::SetRegString(HKEY_LOCAL_MACHINE, kKey, kValue, m_temp.PathW("a b").c_str());
    }
    ~SecurityCentre() override { vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, kKey, kValue); }

    // What the program was started with since the last call.
    Lines Runs() const
    {
        const fs::path file = m_program.parent_path() / "recorded.log";
        Lines runs;
        if (!fs::exists(file))
            return runs;
        std::istringstream log(vlt::test::ReadBytes(file));
        for (std::string line; std::getline(log, line);)
            runs.push_back(nlohmann::json::parse(line).at("arguments"));
        fs::remove(file);
        return runs;
    }

    vlt::test::TempFolder m_temp;
    const fs::path m_program = m_temp.HostPath("a b") / "ArdCmdCom.exe";
};

TEST_F(SecurityCentre, IsToldTwiceAndSpywareIsOffWithoutAntiVirus)
{
    Lines lines = Traced([] { EXPECT_TRUE(ChangeWSCStatus(true, true)); });
    EXPECT_EQ(lines, (Lines{"40 SecurityCentre.cpp: ChangeWSCStatus(1, 1)",
                            "40 SecurityCentre.cpp: Executed WSC virus registration process",
                            "40 SecurityCentre.cpp: Executed WSC spyware registration process"}));
    EXPECT_EQ(Runs(), (Lines{" /WSCAntiVirusOn", " /WSCAntiSpywareOn"}));
    EXPECT_TRUE(ChangeWSCStatus(false, true));
    EXPECT_EQ(Runs(), (Lines{" /WSCAntiVirusOff", " /WSCAntiSpywareOff"}));
    // An exit code is no failure.
    vlt::test::WriteBytes(m_program.parent_path() / "recording.ini", "[ArdCmdCom]\nexit=3\n");
    EXPECT_TRUE(ChangeWSCStatus(true, false));
    EXPECT_EQ(Runs(), (Lines{" /WSCAntiVirusOn", " /WSCAntiSpywareOff"}));
}

TEST_F(SecurityCentre, ProgramThatCannotBeStartedIsTriedOnce)
{
    fs::remove(m_program);
    const Lines expected{"40 SecurityCentre.cpp: ChangeWSCStatus(0, 0)",
                         "20 SecurityCentre.cpp: VlUtil::SyncExecuteProcess() failed"};
    EXPECT_EQ(Traced([] { EXPECT_FALSE(ChangeWSCStatus(false, false)); }), expected);
    vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, kKey, kValue); // leaves a bare name
    EXPECT_EQ(Traced([] { EXPECT_FALSE(ChangeWSCStatus(false, false)); }), expected);
}

} // namespace
