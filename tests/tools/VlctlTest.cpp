// The real vlctl: its exit codes, what it writes and what it prints.
#include "ARDCommon/CipheredValueFormat.h"
#include "ARDCommon/RealTimeSettings.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <set>

using namespace vlt::test;
using nlohmann::json;

namespace
{

constexpr const WCHAR* kKey = TEXT("Software\\VlctlTest");

struct Result {
    int exit = 0;
    std::string output;
};

Child Launch(const std::vector<std::string>& arguments)
{
    for (const char* name : {"vlctl", "vlctl.exe"}) {
        if (std::filesystem::exists(ProductFolder() / name))
            return Child::Program(ProductFolder() / name, arguments);
    }
    throw std::runtime_error("vlctl is not built");
}

// Its output up to an empty line; lines end in LF whatever the host's own ending is.
Result Vlctl(const std::vector<std::string>& arguments)
{
    Child child = Launch(arguments);
    Result result;
    for (std::string line = child.ReadLine(); !line.empty(); line = child.ReadLine())
        result.output += line + '\n';
    result.exit = child.Wait(20000);
    return result;
}

json VlctlJson(const std::vector<std::string>& arguments)
{
    const Result result = Vlctl(arguments);
    EXPECT_EQ(result.exit, 0) << result.output;
    return json::parse(result.output, nullptr, false);
}

std::string Bytes(REGSAM view, const WCHAR* key, const WCHAR* name, DWORD& type)
{
    vlt::RegKey open;
    std::string bytes(512, 0);
    DWORD size = 512;
    type = 99;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ | view, open.Receive()) != 0 ||
        RegQueryValueExW(open.Get(), name, nullptr, &type, reinterpret_cast<LPBYTE>(bytes.data()), &size) != 0)
        return "none";
    return bytes.substr(0, size);
}

std::string Utf16(const WString& text)
{
    return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

} // namespace

TEST(Vlctl, RegistryKeepsEveryTypeInItsView)
{
    const struct {
        const char* type;
        std::vector<std::string> data;
        DWORD code;
        std::string bytes;
        std::string printed;
    } cases[] = {
        {"sz", {"a b\xC3\xA9"}, REG_SZ, Utf16(WString(TEXT("a b\x00E9")) + WCHAR(0)), "a b\xC3\xA9\n"},
        {"dword", {"0xFFFFFFFF"}, REG_DWORD, "\xFF\xFF\xFF\xFF", "4294967295\n"},
        {"qword", {"4294967296"}, REG_QWORD, std::string("\0\0\0\0\1\0\0\0", 8), "4294967296\n"},
        {"binary", {"00ff10"}, REG_BINARY, std::string("\0\xFF\x10", 3), "00ff10\n"},
        {"multi", {"one", "two"}, REG_MULTI_SZ, Utf16(WString(TEXT("one\0two\0\0"), 9)), "one\ntwo\n"},
        {"expand", {"%X%"}, REG_EXPAND_SZ, Utf16(WString(TEXT("%X%\0"), 4)), "%X%\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.type);
        std::vector<std::string> set{"registry", "set", "HKLM/Software/VlctlTest", each.type, "--type",
                                     each.type,  "--"};
        set.insert(set.end(), each.data.begin(), each.data.end());
        EXPECT_EQ(Vlctl(set).exit, 0);
        DWORD type = 0;
        EXPECT_EQ(Bytes(KEY_WOW64_32KEY, kKey, vlt::ToWide(each.type).c_str(), type), each.bytes);
        EXPECT_EQ(type, each.code);
        EXPECT_EQ(Vlctl({"registry", "get", "HKLM\\Software\\VlctlTest", each.type}).output, each.printed);
    }
    EXPECT_EQ(Vlctl({"registry", "get", "Software/VlctlTest", "sz", "--view", "64"}).exit, 1);
    const json list = VlctlJson({"registry", "list", "Software/VlctlTest", "--json"});
    EXPECT_EQ(list["values"].size(), 6u);
    EXPECT_EQ(list["values"]["multi"]["data"], json({"one", "two"}));
    EXPECT_EQ(Vlctl({"registry", "set", "Software/VlctlTest", "x", "--type", "dword", "4294967296"}).exit, 64);
    EXPECT_EQ(Vlctl({"registry", "set", "Software/VlctlTest", "x", "--type", "binary", "0f0"}).exit, 64);
    EXPECT_EQ(Vlctl({"registry", "delete", "Software/VlctlTest", "sz"}).exit, 0);
    EXPECT_EQ(Vlctl({"registry", "get", "Software/VlctlTest", "sz"}).exit, 1);
    EXPECT_EQ(Vlctl({"registry", "delete", "Software/VlctlTest"}).exit, 0);
    EXPECT_EQ(Vlctl({"registry", "list", "Software/VlctlTest"}).exit, 1);
}

TEST(Vlctl, SettingsFollowTheServicesRules)
{
    // On Windows there is one registry for all tests.
    Vlctl({"registry", "delete", "Software/Veltrano/Ardentis/15/RealTimeScan"});
    ASSERT_EQ(Vlctl({"settings", "set", "ioscane", "off"}).exit, 0);
    DWORD type = 0;
    const std::string stored = Bytes(KEY_WOW64_32KEY, vlt::kRealTimeScanKey, TEXT("IOScanE"), type);
    ASSERT_EQ(type, REG_BINARY);
    ASSERT_EQ(stored.size(), vlt::kCipheredValueSize);
    vlt::CipheredBytes bytes;
    std::copy(stored.begin(), stored.end(), bytes.begin());
    EXPECT_EQ(vlt::DecodeCipheredValue(bytes), 0u);

    EXPECT_EQ(Vlctl({"settings", "set", "Action", "7"}).exit, 0);
    EXPECT_EQ(Vlctl({"settings", "set", "FileTypeList", std::string(768, 'x')}).exit, 0);
    EXPECT_EQ(Vlctl({"settings", "set", "FileTypeList", std::string(769, 'x')}).exit, 64);
    EXPECT_EQ(Vlctl({"settings", "set", "DefaultExtension", "x"}).exit, 64);
    EXPECT_EQ(Vlctl({"settings", "set", "NoSuch", "1"}).exit, 64);
    // A value that the service will not take is shown as such, with what it uses instead.
    EXPECT_EQ(Vlctl({"registry", "set", "Software/Veltrano/Ardentis/15/RealTimeScan", "Spyware", "1"}).exit, 0);
    const json list = VlctlJson({"settings", "list", "--json"});
    EXPECT_EQ(list["schema"], 1);
    EXPECT_EQ(list["settings"].size(), vlt::kRealTimeSettings.size());
    std::map<std::string, std::string> read;
    for (const json& each : list["settings"])
        read[each["name"]] = each["value"].get<std::string>() + ' ' + each["from"].get<std::string>();
    EXPECT_EQ(read["IOScanE"], "0 set");
    EXPECT_EQ(read["Action"], "7 set");
    EXPECT_EQ(read["Spyware"], "0 invalid");
    EXPECT_EQ(read["ZipScan"], "1 default");
    EXPECT_EQ(Vlctl({"settings", "set", "Action", "8"}).exit, 64);
    EXPECT_EQ(Vlctl({"settings", "get", "action"}).output, "7\n");
    const Result diff = Vlctl({"settings", "diff", "--json"});
    EXPECT_EQ(diff.exit, 1);
    std::set<std::string> differing;
    const json difference = json::parse(diff.output, nullptr, false);
    for (const json& each : difference["settings"])
        differing.insert(each["name"]);
    EXPECT_EQ(differing, (std::set<std::string>{"Action", "FileTypeList", "IOScanE", "Spyware"}));
    EXPECT_EQ(Vlctl({"registry", "delete", "Software/Veltrano/Ardentis/15/RealTimeScan"}).exit, 0);
    EXPECT_EQ(Vlctl({"settings", "diff"}).exit, 0);
}

TEST(Vlctl, LogShowsHostileNamesHarmlesslyAndFollows)
{
    TempFolder folder;
    const std::string program = vlt::ToNarrow(folder.PathW(), CP_UTF8);
    std::filesystem::create_directory(folder.HostPath("Log"));
    const std::filesystem::path file = folder.HostPath("Log/20240229.VLG");
    WriteBytes(file, Utf16(TEXT("\xFEFF"
                                "20240229|235959|01048576|00000001|2|1|Eicar|C:\\a|b (x\x001B[2J\x202Ey)|7|1|0|0\r\n"
                                "torn line|1\r\n")));

    const Result text = Vlctl({"log", "--date", "20240229", "--program-folder", program});
    EXPECT_EQ(text.exit, 0);
    EXPECT_NE(text.output.find("C:\\a|b (x\\u001b[2J\\u202ey)\n"), std::string::npos) << text.output;
    EXPECT_NE(text.output.find("deny done"), std::string::npos) << text.output;
    EXPECT_EQ(text.output.find('\x1B'), std::string::npos);
    const json object = VlctlJson({"log", "--date", "20240229", "--program-folder", program, "--json"});
    EXPECT_EQ(object["file"], "C:\\a|b (x\x1B[2J\xE2\x80\xAEy)");
    EXPECT_EQ(object["firstAction"], "7");
    EXPECT_EQ(Vlctl({"log", "--date", "20240228", "--program-folder", program}).exit, 1);
    EXPECT_EQ(Vlctl({"log", "--date", "2024-02-29", "--program-folder", program}).exit, 64);

    Child follower = Launch({"log", "--date", "20240229", "--program-folder", program, "--follow", "--json"});
    EXPECT_NE(follower.ReadLine().find("Eicar"), std::string::npos);
    // A line that is being written is not shown before its end has come.
    const std::string line = Utf16(TEXT("20240301|000000|01048576|00000001|2|1|Second|C:\\c|2|1|0|0\r\n"));
    WriteBytes(file, ReadBytes(file) + line.substr(0, 41));
    WriteBytes(file, ReadBytes(file) + line.substr(41));
    EXPECT_EQ(json::parse(follower.ReadLine(), nullptr, false)["threat"], "Second");
}

TEST(Vlctl, ServiceIsInstalledOnceAndRemoved)
{
    Vlctl({"service", "remove"});
    EXPECT_EQ(Vlctl({"service", "status"}).exit, 69);
    EXPECT_EQ(Vlctl({"service", "start"}).exit, 69);
    TempFolder folder;
    const std::string program = vlt::ToNarrow(folder.PathW("no program"), CP_UTF8);
    EXPECT_EQ(Vlctl({"service", "install", "--program", program}).exit, 2);
    WriteBytes(folder.HostPath("no program"), "");
    EXPECT_EQ(Vlctl({"service", "install", "--program", program}).exit, 0);
    EXPECT_EQ(Vlctl({"service", "install", "--program", program}).exit, 2);
    const Result status = Vlctl({"service", "status", "--json"});
    EXPECT_EQ(status.exit, 1);
    const json state = json::parse(status.output, nullptr, false);
    EXPECT_EQ(state["state"], "stopped");
    EXPECT_EQ(state["program"], program);
    // What cannot be run is refused, and the wait does not go on for it.
    const int refused = Vlctl({"service", "start"}).exit;
    EXPECT_TRUE(refused == 2 || refused == 77) << refused;
    EXPECT_EQ(Vlctl({"service", "stop"}).exit, 0);
    EXPECT_EQ(Vlctl({"service", "remove"}).exit, 0);
    EXPECT_EQ(Vlctl({"service", "status"}).exit, 69);
    EXPECT_EQ(Vlctl({"service"}).exit, 64);
    EXPECT_EQ(Vlctl({"--help"}).exit, 0);
}
