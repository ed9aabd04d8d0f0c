#include "tests/service/Installation.h"

#include "platform/Format.h"
#include "platform/Text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace vlt::test
{
namespace
{

namespace fs = std::filesystem;

constexpr unsigned kDeadline = 40000; // more than any wait of the service itself
// With our own platform layer the tests see more than a manager shows.
constexpr bool kOwnPlatform = !std::is_same_v<WCHAR, wchar_t>;
constexpr const WCHAR* kName = TEXT("Vlntsrv");

// Hard links, since the programs are large with sanitizers.
void Place(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::create_hard_link(from, to, error);
    if (error)
        fs::copy_file(from, to);
}

// The service's own output goes nowhere, so a sanitizer in it reports to files of this name.
constexpr char kSanitizerReport[] = "sanitizer";

void ReportSanitizersTo(const std::string& path)
{
    for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        const char* const given = std::getenv(name);
        std::string options = given ? given : "";
        options = options.substr(0, options.find(":log_path=")) + ":log_path=" + path;
        SetEnvironmentVariableW(ToWide(name).c_str(), ToWide(options).c_str());
    }
}

// What a sanitizer reported to the file. Its search for leaks may also say that it could not read a
// thread that was just ending, which is no finding.
std::string Findings(const fs::path& report)
{
    std::istringstream text(ReadBytes(report));
    std::string findings;
    for (std::string line; std::getline(text, line);) {
        if (line.find("Unable to get registers from thread") == std::string::npos)
            findings += line + '\n';
    }
    return findings;
}

void DeleteTree(HKEY parent, const WCHAR* key, REGSAM view)
{
    {
        RegKey open;
        if (RegOpenKeyExW(parent, key, 0, KEY_READ | view, open.Receive()) != 0)
            return;
        WCHAR name[256];
        DWORD length = 256;
        while (RegEnumKeyExW(open.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr) == 0) {
            DeleteTree(open.Get(), name, view);
            length = 256;
        }
    }
    RegDeleteKeyExW(parent, key, view, 0);
}

void CleanMachine()
{
    DeleteTree(HKEY_LOCAL_MACHINE, kProductKey, KEY_WOW64_32KEY);
    DeleteTree(HKEY_LOCAL_MACHINE, kProductKey, KEY_WOW64_64KEY);
    DeleteTree(HKEY_LOCAL_MACHINE, kEventSourceKey, 0);
}

void StoreValue(const WCHAR* key, const char* name, DWORD type, const void* data, std::size_t size)
{
    RegKey open;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr, open.Receive(), nullptr),
              0);
    ASSERT_EQ(RegSetValueExW(open.Get(), ToWide(name).c_str(), 0, type, static_cast<const BYTE*>(data),
                             static_cast<DWORD>(size)),
              0);
}

bool Glob(std::string_view text, std::string_view pattern)
{
    const std::size_t star = pattern.find('*');
    if (star == std::string_view::npos)
        return text == pattern;
    if (text.substr(0, star) != pattern.substr(0, star))
        return false;
    for (std::size_t at = star; at <= text.size(); ++at) {
        if (Glob(text.substr(at), pattern.substr(star + 1)))
            return true;
    }
    return false;
}

std::string Listing(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += "    " + line + '\n';
    return text;
}

} // namespace

Installation::Installation(const Layout& layout)
{
    m_folderW = m_folder.PathW() + TEXT("\\");
    CleanMachine();
    const fs::path recording = ProductFolder().parent_path() / "recording";
    Place(Built("vlntsrv"), Program());
    if (fs::exists(ProductFolder() / "libvlplatform.so"))
        Place(ProductFolder() / "libvlplatform.so", File("libvlplatform.so"));
    for (const char* variant : {layout.scan, layout.trace, layout.command, layout.pattern}) {
        if (*variant != 0)
            Place(recording / variant, File(fs::path(variant).filename().string()));
    }
    SetBytes(kProductKey, "Application Path", REG_SZ,
             {reinterpret_cast<const char*>(m_folderW.c_str()), (m_folderW.size() + 1) * sizeof(WCHAR)});
    if (kOwnPlatform) {
        SetEnvironmentVariableW(TEXT("VLT_SERVICE_TRACE"), ToWide(File("status.log").string()).c_str());
        ReportSanitizersTo(File(kSanitizerReport).string());
    }

    const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    const WString program = m_folderW + ToWide(Program().filename().string());
    // The registration of an earlier test goes when its last handle does.
    Eventually(kDeadline, [&] {
        m_service.Reset(CreateServiceW(manager.Get(), kName, TEXT("Veltrano Realtime Service"), SERVICE_ALL_ACCESS,
                                       0x110, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, program.c_str(), nullptr,
                                       nullptr, nullptr, nullptr, nullptr));
        if (!m_service && GetLastError() == ERROR_SERVICE_EXISTS) {
            const ServiceHandle old(OpenServiceW(manager.Get(), kName, DELETE));
            DeleteService(old.Get());
        }
        return static_cast<bool>(m_service);
    });
    EXPECT_TRUE(m_service) << "error " << GetLastError();
}

Installation::~Installation()
{
    WriteBytes(File("ASInitScanW.go"), "");
    const DWORD state = Status().dwCurrentState;
    if (state != SERVICE_STOPPED && state != 0) {
        Control(SERVICE_CONTROL_STOP);
        if (!Reaches(SERVICE_STOPPED)) {
            const KernelHandle process(OpenProcess(PROCESS_TERMINATE, FALSE, Status().dwProcessId));
            TerminateProcess(process.Get(), 1);
        }
    }
    // What a sanitizer finds at the end of the process comes after the last report.
    if (m_process)
        WaitForSingleObject(m_process.Get(), kDeadline);
    Unregister();
    CleanMachine();
    for (const auto& entry : fs::directory_iterator(m_folder.HostPath())) {
        if (entry.path().filename().string().starts_with(kSanitizerReport)) {
            EXPECT_EQ(Findings(entry.path()), "");
        }
    }
}

void Installation::Unregister()
{
    if (m_service)
        DeleteService(m_service.Get());
    m_service.Reset();
}

std::string Installation::FolderText() const
{
    return ToNarrow(m_folderW, CP_UTF8);
}

fs::path Installation::Built(const char* stem)
{
    for (const auto& entry : fs::directory_iterator(ProductFolder())) {
        std::string name = entry.path().filename().string();
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
        if (name == stem || name == std::string(stem) + ".exe")
            return entry.path();
    }
    throw std::runtime_error(std::string("not built: ") + stem);
}

fs::path Installation::Program() const
{
    return File(Built("vlntsrv").filename().string());
}

void Installation::Set(const char* name, DWORD number)
{
    StoreValue(kScanKey, name, REG_DWORD, &number, sizeof number);
}

void Installation::Set(const char* name, const std::string& text, DWORD type)
{
    const WString wide = ToWide(text, CP_UTF8);
    StoreValue(kScanKey, name, type, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
}

void Installation::SetBytes(const WCHAR* key, const char* name, DWORD type, std::string_view bytes)
{
    StoreValue(key, name, type, bytes.data(), bytes.size());
}

void Installation::SetException(const std::string& name, const std::string& path)
{
    const WString wide = ToWide(path, CP_UTF8);
    StoreValue(kExceptionKey, name.c_str(), REG_SZ, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
}

void Installation::Instruct(const char* section, const char* key, const std::string& value)
{
    WritePrivateProfileStringW(ToWide(section).c_str(), ToWide(key).c_str(), ToWide(value).c_str(),
                               (m_folderW + TEXT("recording.ini")).c_str());
}

std::string Installation::Ini(const char* section, const char* key) const
{
    WCHAR text[1024] = {};
    GetPrivateProfileStringW(ToWide(section).c_str(), ToWide(key).c_str(), TEXT("(none)"), text, 1024,
                             (m_folderW + TEXT("ardentis.ini")).c_str());
    return ToNarrow(text, CP_UTF8);
}

testing::AssertionResult Installation::Start()
{
    if (StartServiceW(m_service.Get(), 0, nullptr)) {
        m_process.Reset(OpenProcess(SYNCHRONIZE, FALSE, Status().dwProcessId));
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "StartService: error " << GetLastError();
}

bool Installation::Control(DWORD code)
{
    SERVICE_STATUS status{};
    return ControlService(m_service.Get(), code, &status) != FALSE;
}

SERVICE_STATUS_PROCESS Installation::Status() const
{
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    QueryServiceStatusEx(m_service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof status,
                         &needed);
    return status;
}

testing::AssertionResult Installation::Reaches(DWORD state) const
{
    if (Eventually(kDeadline, [&] { return Status().dwCurrentState == state; }))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "state is " << Status().dwCurrentState << ", not " << state << "\n"
                                       << Listing(Transcript());
}

testing::AssertionResult Installation::Live()
{
    if (auto result = Start(); !result)
        return result;
    if (auto result = Reaches(SERVICE_RUNNING); !result)
        return result;
    if (!Control(SERVICE_CONTROL_STOP))
        return testing::AssertionFailure() << "ControlService: error " << GetLastError();
    return Reaches(SERVICE_STOPPED);
}

std::vector<Record> Installation::Recorded() const
{
    return ParseLines(ReadBytes(File("recorded.log")));
}

std::vector<Record> Installation::Calls(std::string_view name) const
{
    std::vector<Record> calls = Recorded();
    std::erase_if(calls, [&](const Record& record) { return record["call"] != name; });
    return calls;
}

std::vector<std::string> Installation::Transcript(std::string_view from) const
{
    std::vector<std::string> lines;
    for (const Record& record : Recorded()) {
        if (from.empty() || record["from"] == from)
            lines.push_back(record.Line());
    }
    return lines;
}

std::vector<Record> ParseLines(const std::string& text)
{
    std::vector<Record> records;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto json = nlohmann::ordered_json::parse(line, nullptr, false);
        if (!json.is_object())
            continue;
        Record& record = records.emplace_back();
        for (const auto& [key, value] : json.items())
            record.members.emplace_back(key, value.is_string() ? value.get<std::string>() : value.dump());
    }
    return records;
}

const std::string& Record::operator[](std::string_view name) const
{
    const auto found =
        std::find_if(members.begin(), members.end(), [&](const auto& member) { return member.first == name; });
    return found != members.end() ? found->second : throw std::out_of_range("no member " + std::string(name));
}

std::string Record::Line() const
{
    const Record& record = *this;
    const std::string& call = record["call"];
    if (call == "TraceExA" || call == "TraceA") {
        const bool named = call == "TraceA" || (record["module"] == "VlntSrv" && record["one"] == "1");
        const char* const kind = !named || std::stoi(record["line"]) <= 0 ? "MALFORMED "
                                 : call == "TraceA"                       ? "TraceA "
                                                                          : "";
        return kind + record["level"] + ' ' + record["source"] + ' ' + record["text"];
    }
    std::string line = call;
    for (const auto& [key, value] : members) {
        if (key == "handle")
            line += value == "true" ? "" : " OTHER HANDLE";
        else if (key == "arguments")
            line += value;
        else if (key != "from" && key != "thread" && key != "call" && key != "record" && key != "processId")
            line += ' ' + key + '=' + value;
    }
    return line;
}

std::vector<std::string> Installation::StatusReports() const
{
    std::vector<std::string> reports;
    std::istringstream text(ReadBytes(File("status.log")));
    for (std::string type, state, accepted, exit, specific, checkpoint, hint;
         text >> type >> state >> accepted >> exit >> specific >> checkpoint >> hint;)
        reports.push_back(state + ' ' + checkpoint + ' ' + hint + ' ' + accepted + ' ' + exit);
    return reports;
}

bool Installation::HasStatusReports()
{
    return kOwnPlatform;
}

std::string Value::Text() const
{
    WString text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text +=
            static_cast<WCHAR>(static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8);
    return ToNarrow(text.c_str(), CP_UTF8);
}

Value ReadValue(const WCHAR* key, const char* name, REGSAM view)
{
    Value value;
    RegKey open;
    DWORD size = 0;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ | view, open.Receive()) != 0 ||
        RegQueryValueExW(open.Get(), ToWide(name).c_str(), nullptr, &value.type, nullptr, &size) != 0)
        return {};
    value.bytes.resize(size);
    RegQueryValueExW(open.Get(), ToWide(name).c_str(), nullptr, &value.type,
                     reinterpret_cast<LPBYTE>(value.bytes.data()), &size);
    return value;
}

testing::AssertionResult Matches(const std::vector<std::string>& actual, const std::vector<std::string>& expected)
{
    for (std::size_t i = 0; i < std::max(actual.size(), expected.size()); ++i) {
        if (i < actual.size() && i < expected.size() && Glob(actual[i], expected[i]))
            continue;
        return testing::AssertionFailure()
               << "line " << i + 1 << " differs\n  expected: " << (i < expected.size() ? expected[i] : "(end)")
               << "\n  actual:   " << (i < actual.size() ? actual[i] : "(end)") << "\n  all lines:\n"
               << Listing(actual);
    }
    return testing::AssertionSuccess();
}

testing::AssertionResult Holds(const std::vector<std::string>& actual, const std::vector<std::string>& expected)
{
    std::size_t found = 0;
    for (const std::string& line : actual) {
        if (found < expected.size() && Glob(line, expected[found]))
            ++found;
    }
    if (found == expected.size())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "missing: " << expected[found] << "\n" << Listing(actual);
}

std::vector<Record> EventLog()
{
    const char* const root = std::getenv("VLT_ROOT");
    return ParseLines(kOwnPlatform && root ? ReadBytes(fs::path(root) / "eventlog" / "application.jsonl") : "");
}

} // namespace vlt::test
