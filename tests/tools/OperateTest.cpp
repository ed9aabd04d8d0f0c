// vlctl status, exclusions, selftest and doctor on a machine with the real service and the real scan library.
#include "platform/Text.h"
#include "tests/tools/AnotherAccount.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

using namespace vlt::test;
using nlohmann::json;
namespace fs = std::filesystem;

namespace
{

constexpr unsigned kDeadline = 60000;

struct Result {
    int exit = 0;
    std::string output;
    json Json() const { return json::parse(output, nullptr, false); }
};

// An installation as an administrator makes it: files, an ini, registry values and the registration.
class Machine
{
public:
    Machine()
    {
        for (const auto& entry : fs::directory_iterator(ProductFolder()))
            if (IsInstalled(entry.path()))
                fs::copy_file(entry.path(), m_program.HostPath(entry.path().filename().string()));
        WriteBytes(m_program.HostPath("ArdScan.ini"), "[Guard]\r\nFolder0=" + GuardedText() + "\r\n");
        Clear(); // on Windows there may be something of another test
        Vlctl({"registry", "set", "Software/Veltrano/Ardentis", "Application Path", ProgramText() + '\\'});
        Vlctl({"settings", "set", "Action", "2"});
    }
    ~Machine()
    {
        Clear();
        Vlctl({"registry", "delete", "Software/Veltrano/Ardentis", "Application Path"});
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    Result Vlctl(const std::vector<std::string>& arguments) const
    {
        const fs::path tool = m_program.HostPath(fs::exists(m_program.HostPath("vlctl")) ? "vlctl" : "vlctl.exe");
        Child child = Child::Program(tool, arguments);
        Result result;
        for (std::string line = child.ReadLine(kDeadline); !line.empty(); line = child.ReadLine(kDeadline))
            result.output += line + '\n';
        result.exit = child.Wait(kDeadline);
        return result;
    }
    int Exit(const std::vector<std::string>& arguments) const { return Vlctl(arguments).exit; }

    // The scan library reports a moment after the service runs.
    bool Start() const
    {
        const std::string service = fs::exists(m_program.HostPath("vlntsrv")) ? "\\vlntsrv" : "\\Vlntsrv.exe";
        Vlctl({"service", "install", "--program", ProgramText() + service});
        if (Exit({"service", "start"}) != 0)
            return false;
        return Eventually(kDeadline, [&] {
            const json mode = Status()["mode"];
            return mode != "unknown" && mode != "stopped";
        });
    }
    json Status() const { return Vlctl({"status", "--json"}).Json(); }

    std::string ProgramText() const { return vlt::ToNarrow(m_program.PathW(), CP_UTF8); }
    std::string GuardedText(std::string_view name = {}) const { return vlt::ToNarrow(guarded.PathW(name), CP_UTF8); }
    fs::path File(std::string_view name) const { return m_program.HostPath(name); }

    const TempFolder guarded;

private:
    static bool IsInstalled(const fs::path& file)
    {
        const std::set<std::string> names{"vlntsrv",          "Vlntsrv.exe", "vlctl",       "vlctl.exe",
                                          "libvlplatform.so", "ArdScan.dll", "Ksapi64.dll", "ptf$qrv.001"};
        return names.contains(file.filename().string());
    }

    void Clear() const
    {
        Vlctl({"service", "stop"});
        Vlctl({"service", "remove"});
        for (const char* key : {"Exception", "RealTimeScan", "Rollback", "ScanInfo"})
            Vlctl({"registry", "delete", std::string("Software/Veltrano/Ardentis/15/") + key});
    }

    const TempFolder m_program;
};

// The states of a check's findings, and the whole output where a test fails.
std::multiset<std::string> StatesOf(const json& report, const std::string& check)
{
    std::multiset<std::string> states;
    for (const json& finding : report["findings"]) {
        if (finding["check"] == check)
            states.insert(finding["state"]);
        EXPECT_EQ(finding["state"] == "ok", finding["remedy"].is_null()) << finding;
    }
    return states;
}

using States = std::multiset<std::string>;

} // namespace

TEST(Operate, StatusSaysWhetherTheMachineIsProtectedAndWhy)
{
    const Machine machine;
    EXPECT_EQ(machine.Exit({"status"}), 3);
    EXPECT_EQ(machine.Status()["service"], "not installed");
    EXPECT_EQ(machine.Exit({"selftest"}), 69);
    WriteBytes(machine.File("VLEVENT.dll"), "messages");
    ASSERT_TRUE(machine.Start());
    const std::vector<std::string> source{
        "registry",
        "get",
        "SYSTEM/CurrentControlSet/Services/EventLog/Application/Veltrano Realtime Service",
        "EventMessageFile",
        "--view",
        "64"};
    EXPECT_EQ(machine.Vlctl(source).output, machine.ProgramText() + "\\VLEVENT.dll\n");
    const Result running = machine.Vlctl({"status", "--json"});
    const json status = running.Json();
    EXPECT_EQ(status["schema"], 1);
    const bool prevents = status["mode"] == "prevention";
    EXPECT_EQ(status["mode"], prevents ? "prevention" : "detection after write");
    EXPECT_EQ(running.exit, prevents ? 0 : 1) << running.output;
    EXPECT_EQ(status["protection"], prevents ? "protected" : "degraded");
    EXPECT_EQ(status["reasons"].empty(), prevents);
    EXPECT_EQ(status["guarded"].size(), 1u);
    EXPECT_EQ(status["virusPattern"], "100");
    EXPECT_TRUE(status["counters"].contains("scanned"));

    EXPECT_EQ(machine.Exit({"settings", "set", "IOScanE", "off"}), 0);
    EXPECT_EQ(machine.Exit({"status"}), 1);
    EXPECT_EQ(machine.Exit({"settings", "set", "IOScanE", "on"}), 0);
    // What an earlier process has left is not taken for the state of this one.
    EXPECT_EQ(machine.Exit({"service", "stop"}), 0);
    WriteBytes(machine.File("ArdScan.status"), "{\"processId\": 1, \"mode\": \"prevention\"}");
    EXPECT_EQ(machine.Exit({"status"}), 3);
    EXPECT_EQ(machine.Status()["protection"], "not running");
    EXPECT_EQ(machine.Exit({"service", "remove"}), 0);
    EXPECT_EQ(machine.Exit(source), 1);
}

TEST(Operate, AnotherAccountMayLookButNotTouch)
{
    const Machine machine;
    ASSERT_TRUE(machine.Start());
    const auto exit = [&](const std::vector<std::string>& arguments) {
        std::optional<Child> child = AsAnotherAccount(ProductFolder() / "vlctl", arguments);
        return child ? child->Wait(kDeadline) : -2;
    };
    if (exit({"service", "status"}) == -2)
        GTEST_SKIP() << "there is no other account to use";
    EXPECT_EQ(exit({"status"}), machine.Exit({"status"}));
    EXPECT_EQ(exit({"doctor"}), 1); // it cannot see everything
    EXPECT_EQ(exit({"settings", "list"}), 0);
    const std::vector<std::vector<std::string>> refused{{"service", "stop"},
                                                        {"service", "remove"},
                                                        {"settings", "set", "IOScanE", "off"},
                                                        {"exclusions", "add", "/x"},
                                                        {"registry", "delete", "Software/Veltrano"}};
    for (const auto& arguments : refused)
        EXPECT_EQ(exit(arguments), 77) << arguments[0] << ' ' << arguments[1];
    EXPECT_EQ(machine.Exit({"service", "status"}), 0);
}

TEST(Operate, ExclusionsDecideWhatIsScanned)
{
    const Machine machine;
    ASSERT_TRUE(machine.Start());
    const auto decision = [&](const std::string& path) {
        const Result result = machine.Vlctl({"exclusions", "test", path, "--json"});
        const json found = result.Json();
        EXPECT_EQ(result.exit, found["scanned"] == true ? 0 : 1) << result.output;
        return found["decidedBy"].get<std::string>() + ' ' + found["entry"].get<std::string>();
    };
    const std::string file = machine.GuardedText("in\\a.txt");
    fs::create_directory(machine.guarded.HostPath("in"));
    WriteBytes(machine.guarded.HostPath("in/a.txt"), "text");
    EXPECT_EQ(decision(file), "guarded folder Folder0");
    EXPECT_EQ(decision(machine.ProgramText() + "\\a.txt"), "guarded folder none");

    EXPECT_EQ(machine.Exit({"exclusions", "add", machine.GuardedText("other.txt")}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "add", file}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "add", file}), 0); // once
    EXPECT_EQ(decision(file), "exclusion File1");
    EXPECT_EQ(machine.Exit({"exclusions", "add", machine.GuardedText("in")}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "remove", machine.GuardedText("other.txt")}), 0);
    EXPECT_EQ(decision(file), "exclusion File1"); // a place holder keeps the list going
    EXPECT_EQ(machine.Exit({"exclusions", "remove", file}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "remove", file}), 1);
    EXPECT_EQ(decision(file), "exclusion Folder0");
    EXPECT_EQ(decision(machine.GuardedText("inner.txt")), "guarded folder Folder0"); // not in the folder "in"

    // Behind a gap nothing counts, and the next one fills it.
    const std::string key = "Software/Veltrano/Ardentis/15/Exception";
    EXPECT_EQ(machine.Exit({"registry", "set", key, "Folder2", machine.GuardedText()}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "remove", machine.GuardedText("in")}), 0);
    EXPECT_EQ(decision(file), "guarded folder Folder0");
    EXPECT_EQ(machine.Exit({"exclusions", "add", machine.GuardedText("new"), "--folder"}), 0);
    EXPECT_EQ(decision(machine.GuardedText("new\\b")), "exclusion Folder0");
    EXPECT_EQ(machine.Exit({"exclusions", "add", machine.GuardedText(std::string(256, 'x'))}), 64);

    EXPECT_EQ(machine.Exit({"settings", "set", "ActiveScan", "0"}), 0);
    EXPECT_EQ(machine.Exit({"settings", "set", "FileTypeList", ".EXE.COM"}), 0);
    EXPECT_EQ(decision(file), "setting FileTypeList");
    EXPECT_EQ(decision(machine.GuardedText("a.exe")), "guarded folder Folder0");
}

TEST(Operate, SelftestLetsTheServiceCatchAFileAndLeavesNothing)
{
    const Machine machine;
    ASSERT_TRUE(machine.Start());
    const Result result = machine.Vlctl({"selftest", "--timeout", "50", "--json"});
    EXPECT_EQ(result.exit, 0) << result.output;
    const json report = result.Json();
    EXPECT_EQ(report["passed"], true);
    for (const json& step : report["steps"]) {
        const bool skipped = step["step"] == "refusal" && report["mode"] != "prevention";
        EXPECT_EQ(step["result"], skipped ? "skipped" : "done") << step;
    }
    EXPECT_EQ(report["steps"].size(), 6u);
    EXPECT_EQ(machine.Vlctl({"quarantine", "list", "--json"}).output, "");
    EXPECT_TRUE(Eventually(kDeadline, [&] {
        return machine.Status()["lastDetection"].dump().find("vlctl-selftest") != std::string::npos;
    }));

    // Where nothing is guarded nothing is caught, and that is said.
    const TempFolder elsewhere;
    const std::string folder = vlt::ToNarrow(elsewhere.PathW(), CP_UTF8);
    EXPECT_EQ(machine.Exit({"selftest", "--folder", folder, "--timeout", "2"}), 1);
    EXPECT_TRUE(fs::is_empty(elsewhere.HostPath()));

    // Under Wine a folder that is watched goes with the watch.
    EXPECT_EQ(machine.Exit({"service", "stop"}), 0);
    EXPECT_TRUE(Eventually(kDeadline, [&] { return fs::is_empty(machine.guarded.HostPath()); }));
}

TEST(Operate, DoctorFindsWhatWasBroken)
{
    const Machine machine;
    EXPECT_EQ(StatesOf(machine.Vlctl({"doctor", "--json"}).Json(), "service"), States{"problem"});
    ASSERT_TRUE(machine.Start());
    const Result healthy = machine.Vlctl({"doctor", "--json"});
    for (const char* check :
         {"service", "engine", "settings", "exclusions", "libraries", "patterns", "folders", "stale"})
        EXPECT_EQ(StatesOf(healthy.Json(), check), States{"ok"}) << check << healthy.output;
    EXPECT_EQ(StatesOf(healthy.Json(), "guarded"), States{"ok"}) << healthy.output;

    const std::string exceptions = "Software/Veltrano/Ardentis/15/Exception";
    EXPECT_EQ(machine.Exit({"registry", "set", exceptions, "File7", "C:\\x"}), 0);
    EXPECT_EQ(machine.Exit({"exclusions", "add", "--folder", machine.GuardedText()}), 0);
    EXPECT_EQ(machine.Exit({"settings", "set", "ActiveScan", "0"}), 0);
    EXPECT_EQ(machine.Exit({"settings", "set", "SpyThreats", "4"}), 0);
    EXPECT_EQ(machine.Exit({"registry", "set", "Software/Veltrano/Ardentis/15/RealTimeScan", "Action", "x"}), 0);
    EXPECT_EQ(machine.Exit({"registry", "set", "Software/Veltrano/Ardentis", "Application Path", "C:\\nowhere"}), 0);
    EXPECT_EQ(machine.Exit({"service", "stop"}), 0);
    // The process may hold its library a moment longer than its state says.
    ASSERT_TRUE(Eventually(kDeadline, [&] {
        WriteBytes(machine.File("ArdScan.dll"), "no library");
        return ReadBytes(machine.File("ArdScan.dll")) == "no library";
    }));
    WriteBytes(machine.File("ptf$qrv.002"), ReadBytes(machine.File("ptf$qrv.001")).substr(0, 100));
    fs::remove(machine.File("ptf$qrv.001"));
    fs::remove_all(machine.guarded.HostPath());
    EXPECT_EQ(machine.Exit(
                  {"registry", "set", "Software/Veltrano/Ardentis/15/Rollback", "RTSStatus", "1", "--type", "dword"}),
              0);
    const Result broken = machine.Vlctl({"doctor", "--json"});
    EXPECT_EQ(broken.exit, 1);
    const json report = broken.Json();
    EXPECT_EQ(StatesOf(report, "service"), States{"problem"});
    EXPECT_EQ(StatesOf(report, "engine"), States{"unknown"});
    EXPECT_EQ(StatesOf(report, "guarded"), States{"problem"}) << broken.output;
    EXPECT_EQ(StatesOf(report, "settings"), (States{"problem", "warning", "warning"})) << broken.output;
    EXPECT_EQ(StatesOf(report, "exclusions"), (States{"problem", "warning"})) << broken.output;
    EXPECT_EQ(StatesOf(report, "libraries"), (States{"problem", "problem"})) << broken.output;
    EXPECT_EQ(StatesOf(report, "patterns"), States{"problem"});
    EXPECT_EQ(StatesOf(report, "folders"), States{"warning"});
    EXPECT_EQ(StatesOf(report, "stale"), States{"warning"}) << broken.output;
}
