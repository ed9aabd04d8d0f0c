// vlctl patterns against the real service with the real libraries: the updater's part, and the whole story of a pattern
// that the engine cannot bear.
#include "ARDCommon/RollbackFormat.h"
#include "platform/Text.h"
#include "tests/service/Installation.h"
#include "tests/suite/Patterns.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>

using namespace vlt::test;
using nlohmann::json;
namespace fs = std::filesystem;

namespace
{

constexpr unsigned kDeadline = 50000;
constexpr char Old[] = "version 100\ntext Old \"<<an old threat>>\"\n";
constexpr char New[] = "version 200\ntext Old \"<<an old threat>>\"\ntext New \"<<a new threat>>\"\n";
constexpr char Bad[] = "version 200\ntext Old \"<<an old threat>>\"\ntext Bad crash \"<<what nobody foresaw>>\"\n";

// The crash that a pattern asks for is no finding of a sanitizer.
struct LetTrapsBe {
    LetTrapsBe()
    {
        for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
            const char* const given = std::getenv(name);
            const std::string options = (given ? given : "") + std::string(":handle_sigill=0");
            SetEnvironmentVariableW(vlt::ToWide(name).c_str(), vlt::ToWide(options).c_str());
        }
    }
};

class PatternCommand : public testing::Test
{
protected:
    PatternCommand()
    {
        for (const char* name : {"ArdScan.dll", "Ksapi64.dll"})
            fs::copy_file(ProductFolder() / name, service.File(name));
        fs::create_directory(Guarded());
        WriteBytes(service.File("ArdScan.ini"), "[Guard]\nFolder0=" + Guarded().string() + "\n");
        Install("ptf$qrv.001", Old);
        EXPECT_EQ(Vlctl({"settings", "set", "IOScanE", "on"}).exit, 0);
        EXPECT_EQ(Vlctl({"settings", "set", "AllFile", "1"}).exit, 0);
        EXPECT_EQ(Vlctl({"settings", "set", "Action", "2"}).exit, 0);
    }

    fs::path Guarded() const { return service.File("guarded"); }
    fs::path Made(const char* name) const { return made.HostPath(name); }
    void Install(const char* name, const char* signatures)
    {
        Make(name, signatures);
        fs::copy_file(Made(name), service.File(name));
    }
    void Make(const char* name, const char* signatures) { WritePattern(made, name, signatures); }

    struct Result {
        int exit = 0;
        std::string output;
        json Json() const { return json::parse(output, nullptr, false); }
    };
    Result Vlctl(const std::vector<std::string>& arguments) const
    {
        Child child = Child::Program(Installation::Built("vlctl"), arguments);
        Result result;
        for (std::string line = child.ReadLine(kDeadline); !line.empty(); line = child.ReadLine(kDeadline))
            result.output += line + '\n';
        result.exit = child.Wait(kDeadline);
        return result;
    }
    Result Patterns(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "patterns");
        arguments.push_back("--json");
        return Vlctl(arguments);
    }
    std::string PathOf(const char* name) const { return vlt::ToNarrow(made.PathW(name), CP_UTF8); }
    static std::string Text(const WCHAR* name)
    {
        return ReadValue(vlt::kRollbackKey, vlt::ToNarrow(name).c_str()).Text();
    }
    static unsigned Number(const vlt::RollbackValue::Number& value)
    {
        const Value read = ReadValue(vlt::kRollbackKey, vlt::ToNarrow(value.name).c_str());
        return read.type == REG_DWORD ? static_cast<unsigned char>(read.bytes[0]) : value.fallback;
    }

    LetTrapsBe traps; // before the service is installed
    TempFolder made;
    Installation service{{"", "", "", ""}};
};

} // namespace

TEST_F(PatternCommand, PlaysTheUpdater)
{
    Make("ptf$qrv.002", New);
    Make("spy", "kind spyware\nversion 700\ntext S adware \"<<spy>>\"\n");
    EXPECT_EQ(Patterns({"reload"}).exit, 69); // nobody listens
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));

    const Result installed = Patterns({"install", PathOf("ptf$qrv.002")});
    EXPECT_EQ(installed.exit, 0) << installed.output;
    EXPECT_EQ(installed.Json()["service"], "reloaded");
    EXPECT_EQ(service.Ini("Info", "Pattern"), "200");
    EXPECT_EQ(Number(vlt::RollbackValue::RollbackFlag), 1u);
    EXPECT_EQ(Patterns({"install", PathOf("spy")}).exit, 64); // of which kind?
    EXPECT_EQ(Patterns({"install", PathOf("spy"), "--kind", "spyware"}).exit, 0);
    EXPECT_EQ(service.Ini("Info", "SpyWare"), "700");
    EXPECT_TRUE(fs::exists(service.File("ptf$spy.007")));
    EXPECT_EQ(Patterns({"reload"}).exit, 0);

    // What no engine would load is not installed; by force it is, refused by the service and withdrawn.
    WriteBytes(Made("ptf$qrv.003"), ReadBytes(Made("ptf$qrv.002")).substr(0, 80));
    EXPECT_EQ(Patterns({"install", PathOf("ptf$qrv.003")}).exit, 2);
    EXPECT_EQ(Patterns({"install", PathOf("ptf$qrv.001")}).exit, 2); // older
    if (Installation::HasStatusReports()) {                          // there is an event log, too
        const Result refused = Patterns({"install", PathOf("ptf$qrv.003"), "--force"});
        EXPECT_EQ(refused.exit, 2);
        EXPECT_EQ(refused.Json()["service"], "failed") << refused.output;
        EXPECT_NE(refused.Json()["error"].get<std::string>().find("(2)"), std::string::npos) << refused.output;
        EXPECT_FALSE(fs::exists(service.File("ptf$qrv.003")));
    }
    EXPECT_EQ(service.Ini("Info", "Pattern"), "200");

    EXPECT_EQ(Patterns({"restore"}).exit, 1);
    EXPECT_EQ(Patterns({"rollback"}).exit, 0);
    EXPECT_EQ(service.Ini("Info", "Pattern"), "100");
    EXPECT_EQ(Text(vlt::RollbackValue::RbPatName), "ptf$qrv.002");
    EXPECT_EQ(Text(vlt::RollbackValue::RbBeforeNo), "200");
    EXPECT_EQ(Number(vlt::RollbackValue::RollbackFlag), 0u);
    EXPECT_TRUE(fs::exists(service.File("rb_ptf$qrv.002")));
    WriteBytes(service.File("ptf$qrv.000"), "damaged");
    EXPECT_EQ(Patterns({"rollback"}).exit, 1); // there is no older one that an engine would load
    fs::remove(service.File("ptf$qrv.000"));
    const json list = Patterns({"list"}).Json();
    std::string states;
    for (const json& file : list["files"])
        states += file["file"].get<std::string>() + ' ' + file["state"].get<std::string>() + '\n';
    EXPECT_EQ(states, "ptf$qrv.001 newest\nrb_ptf$qrv.002 rolled back\nptf$spy.007 newest\n");
    EXPECT_EQ(list["schema"], 1);
    EXPECT_EQ(list["loaded"]["virus"], "100");
    EXPECT_EQ(Patterns({"restore"}).exit, 0);
    EXPECT_EQ(service.Ini("Info", "Pattern"), "200");
    EXPECT_EQ(Text(vlt::RollbackValue::RsPatNo), "200");
    EXPECT_EQ(Text(vlt::RollbackValue::RbPatName), "");
    for (const auto& entry : fs::directory_iterator(service.File("")))
        EXPECT_FALSE(entry.path().filename().string().starts_with("new_") ||
                     entry.path().filename().string().starts_with("old_"))
            << entry.path();
}

// A manager that cannot tell that a service has died is of no use here.
TEST_F(PatternCommand, APatternThatKillsTheServiceIsRolledBack)
{
    if (!Installation::HasStatusReports())
        GTEST_SKIP() << "this manager takes a killed service for a running one";
    Make("ptf$qrv.002", Bad);
    Child supervisor = Child::Program(Installation::Built("vlctl"), {"service", "supervise", "--delay", "0"});
    const auto line = [&] { return supervisor.ReadLine(kDeadline); };
    ASSERT_TRUE(line().starts_with("running"));
    ASSERT_EQ(Patterns({"install", PathOf("ptf$qrv.002")}).exit, 0);

    // Moved in, since that is one event: a second one could meet the service when it is back already.
    const auto provoke = [&](const std::string& name) {
        WriteBytes(Made("trigger"), "<<what nobody foresaw>>");
        fs::rename(Made("trigger"), Guarded() / name);
    };
    for (unsigned death = 1; death <= 2; ++death) {
        provoke("trigger" + std::to_string(death));
        EXPECT_TRUE(line().starts_with("ended with ")) << death;
        ASSERT_TRUE(line().starts_with("running")) << death;
        EXPECT_EQ(Number(vlt::RollbackValue::AbnormalCounter), death == 1 ? 1u : 0u);
        EXPECT_EQ(service.Ini("Info", "Pattern"), death == 1 ? "200" : "100");
    }
    EXPECT_EQ(Number(vlt::RollbackValue::RollbackFlag), 0u);
    EXPECT_EQ(Number(vlt::RollbackValue::NotifyFlag), 1u);
    EXPECT_EQ(Text(vlt::RollbackValue::RbPatName), "ptf$qrv.002");
    EXPECT_EQ(Text(vlt::RollbackValue::RbBeforeNo), "200");
    std::string log;
    for (const auto& entry : fs::directory_iterator(service.File("Log")))
        if (entry.path().extension() == ".UPG")
            log += ReadBytes(entry.path());
    EXPECT_TRUE(log.ends_with("|2|3|200\r\n") && std::count(log.begin(), log.end(), '\n') == 1) << log;
    EXPECT_EQ(Patterns({"list"}).Json()["rolledBack"]["byService"], true);

    // Protection goes on, and what killed the service does no more.
    provoke("harmless");
    EXPECT_EQ(ReadBytes(Guarded() / "harmless"), "<<what nobody foresaw>>");
    WriteBytes(Guarded() / "infected", "<<an old threat>>");
    EXPECT_TRUE(Eventually(kDeadline, [&] {
        return Vlctl({"quarantine", "list", "--json"}).output.find("infected") != std::string::npos;
    }));
    EXPECT_EQ(Vlctl({"service", "stop"}).exit, 0);
    EXPECT_EQ(line(), "stopped");
    EXPECT_EQ(supervisor.Wait(kDeadline), 0);
}
