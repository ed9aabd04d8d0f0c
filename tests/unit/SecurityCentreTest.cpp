// The protection state, told to a real command program in the application folder.
#include "realtime/SecurityCentre.h"
#include "ARDCommon/Registry.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace
{

namespace fs = std::filesystem;

// The folder's name has a blank, and no program lies at the prefix before it.
TEST(SecurityCentre, IsToldInAFolderWithABlankAndAnExitCodeIsNoFailure)
{
    const vlt::test::TempFolder temp;
    const fs::path folder = temp.HostPath("a b");
    fs::create_directory(folder);
    fs::copy_file(VLT_COMMAND_PROGRAM, folder / "ArdCmdCom.exe");
    const fs::path platform = VLT_PLATFORM_LIBRARY;
    if (platform.extension() == ".so")
        fs::copy_file(platform, folder / platform.filename());
    vlt::test::WriteBytes(folder / "recording.ini", "[ArdCmdCom]\nexit=3\n");
    constexpr const WCHAR* kKey = TEXT("Software\\Veltrano\\Ardentis");
    vlt::SetRegString(HKEY_LOCAL_MACHINE, kKey, TEXT("Application Path"), temp.PathW("a b").c_str());
    EXPECT_TRUE(ChangeWSCStatus(true, false));
    vlt::DeleteRegValue(HKEY_LOCAL_MACHINE, kKey, TEXT("Application Path"));
    EXPECT_FALSE(ChangeWSCStatus(true, true)) << "a bare name is no program";

    std::string arguments;
    std::istringstream log(vlt::test::ReadBytes(folder / "recorded.log"));
    for (std::string line; std::getline(log, line);)
        arguments += nlohmann::json::parse(line).at("arguments").get<std::string>();
    EXPECT_EQ(arguments, " /WSCAntiVirusOn /WSCAntiSpywareOff");
}

} // namespace
