// The trace against a real library that records what it is told.
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/ProgramFolder.h"
#include "platform/Text.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace
{

using Json = nlohmann::json;

static_assert(std::string_view(vlt::TraceSourceName{"/a/ARDCommon/NotifySender.cpp"}.text) ==
              "..\\..\\ARDCommon\\NotifySender.cpp");
static_assert(std::string_view(vlt::TraceSourceName{"/ARDCommon/service/crealscan.cpp"}.text) == ".\\crealscan.cpp");
static_assert(std::string_view(vlt::TraceSourceName{"ARDCommonX/Setreal.cpp"}.text) == ".\\Setreal.cpp");

class VlDebug : public testing::Test
{
protected:
    VlDebug() { std::filesystem::remove(m_log); }

    bool Init(CVlDebug& debug, LPCWSTR module, LONG extended)
    {
        std::string folder = "Z:" + std::string(VLT_RECORDING_FOLDER);
        std::replace(folder.begin(), folder.end(), '/', '\\');
        return debug.Init(vlt::ToWide(folder).c_str(), m_settings.c_str(), module, extended);
    }

    std::vector<Json> Recorded() const
    {
        std::vector<Json> records;
        std::istringstream log(vlt::test::ReadBytes(m_log));
        for (std::string line; std::getline(log, line);)
            records.push_back(Json::parse(line));
        return records;
    }

    const std::filesystem::path m_log = vlt::test::ProgramFolder() / "recorded.log";
    vlt::test::TempFolder m_folder;
    const WString m_settings = m_folder.PathW("ardentis.ini");
};

TEST_F(VlDebug, NamesTheComponentAndPassesMessagesUnchanged)
{
    WritePrivateProfileStringW(TEXT("debug"), TEXT("hot_switch"), TEXT("5"), m_settings.c_str());
    CVlDebug debug;
    ASSERT_TRUE(Init(debug, TEXT("VlntSrv"), 1));
    SetLastError(4711);
    debug.Trace(".\\a.cpp", 17, 20, "100%s %d%% %S", "%n%s", -3, TEXT("wide"));
    EXPECT_EQ(GetLastError(), 4711u);
    debug.Trace(".\\a.cpp", 18, 50, "%s", std::string(2000, 'x'));

    const std::vector<Json> records = Recorded();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0]["call"], "InitDebugEx");
    EXPECT_EQ(records[1]["call"], "TraceExA");
    EXPECT_EQ(records[1]["format"], "%s");
    EXPECT_EQ(records[1]["text"], "100%n%s -3% wide");
    EXPECT_EQ(records[2]["text"], std::string(1023, 'x'));
}

TEST_F(VlDebug, IsPlainWithoutAModuleNameOrTheExtendedSwitch)
{
    for (const auto& [module, extended] : {std::pair<LPCWSTR, LONG>{nullptr, 1}, {TEXT("VlntSrv"), 0}}) {
        std::filesystem::remove(m_log);
        CVlDebug debug;
        ASSERT_TRUE(Init(debug, module, extended));
        debug.Trace(".\\a.cpp", 1, 40, "text");
        const std::vector<Json> records = Recorded();
        ASSERT_EQ(records.size(), 2u);
        EXPECT_EQ(records[0]["call"], "InitDebug");
        EXPECT_EQ(records[0]["hotSwitch"], 0);
        EXPECT_EQ(records[1]["call"], "TraceA");
        EXPECT_EQ(records[1]["text"], "text");
    }
}

} // namespace
