// vlctl selftest: lets the running service catch a harmless test file, in a folder that is made for it and
// taken away again.
#include "engine/ArdScanAbi.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "suite/Channel/DetectionFeed.h"
#include "suite/Channel/DetectionNames.h"
#include "suite/Channel/Interrupt.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/EngineReport.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/QuarantineCommands.h"
#include "tools/vlctl/ServiceManager.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

#include <optional>

namespace vlt::ctl
{
namespace
{

constexpr DWORD PollMilliseconds = 50;

struct Settings {
    std::string folder;
    std::uint32_t timeoutSeconds = 20;
};

// The standard test file of the trade, harmless by agreement. In pieces, so that no scanner minds this
// program.
std::string TestFile()
{
    return std::string("X5O!P%@AP[4\\PZX54(P^)7CC)7}$") + "EICAR-STANDARD-" + "ANTIVIRUS-TEST-FILE!$H+H*";
}

class Selftest
{
public:
    Selftest(const Settings& settings, WString folder, const EngineReport& engine);
    ~Selftest() { CleanUp(); }
    Selftest(const Selftest&) = delete;
    Selftest& operator=(const Selftest&) = delete;

    void Run();
    const Json& Steps() const { return m_steps; }
    bool Passed() const { return m_passed; }

private:
    enum class Opening { Refused, Allowed, Gone };

    void Note(const char* step, bool done, const std::string& detail);
    void Skip(const char* step, const std::string& detail);
    template <typename Condition>
    bool Until(Condition&& condition) const;

    FileHandle Write(const WString& path) const;
    Opening Open(const WString& path) const;
    void Refusal();
    void Detection();
    void Report();
    void Quarantine();
    std::vector<WString> Kept() const; // names of the files in quarantine that come from the folder
    bool Hear();
    bool Delete();
    void CleanUp() noexcept;

    const ULONGLONG m_deadline;
    const WString m_folder; // without a backslash at its end
    const bool m_prevents;
    const QuarantineStore m_store;
    Json m_steps = Json::array();
    bool m_passed = true;
    bool m_made = false;
    const KernelHandle m_end;
    std::optional<suite::DetectionFeed> m_feed;
    std::vector<AsDetectionRecord> m_heard; // of what is below the folder
};

Selftest::Selftest(const Settings& settings, WString folder, const EngineReport& engine)
    : m_deadline(GetTickCount64() + settings.timeoutSeconds * 1000ull),
      m_folder(folder + Format(TEXT("\\vlctl-selftest-%u"), GetCurrentProcessId())),
      m_prevents(engine.mode == "prevention" && (ReadNumberSetting(SettingId::InOut) & AS_DIRECTION_OPEN) != 0 &&
                 ReadNumberSetting(SettingId::Action) > AS_ACTION_PASS),
      m_store(ServiceFolder() + TEXT("Quarantine")), m_end(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
}

void Selftest::Note(const char* step, bool done, const std::string& detail)
{
    m_steps.push_back({{"step", step}, {"result", done ? "done" : "failed"}, {"detail", detail}});
    m_passed = m_passed && done;
}

void Selftest::Skip(const char* step, const std::string& detail)
{
    m_steps.push_back({{"step", step}, {"result", "skipped"}, {"detail", detail}});
}

template <typename Condition>
bool Selftest::Until(Condition&& condition) const
{
    for (;;) {
        if (condition())
            return true;
        if (GetTickCount64() >= m_deadline || IsInterrupted())
            return false;
        Sleep(PollMilliseconds);
    }
}

FileHandle Selftest::Write(const WString& path) const
{
    FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string content = TestFile();
    DWORD written = 0;
    if (!file || !WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr))
        FailWith(GetLastError(), Printable(path));
    return file;
}

Selftest::Opening Selftest::Open(const WString& path) const
{
    const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file)
        return Opening::Allowed;
    return GetLastError() == ERROR_ACCESS_DENIED ? Opening::Refused : Opening::Gone;
}

// The writer stays open meanwhile: its end would have the file scanned and put away before it is opened. The
// guard follows a new folder a moment after it was made, so the first openings may pass.
void Selftest::Refusal()
{
    unsigned attempts = 0;
    const bool refused = Until([&] {
        const WString path = m_folder + Format(TEXT("\\test%u.com"), ++attempts);
        const FileHandle writer = Write(path);
        return Open(path) == Opening::Refused;
    });
    Note("refusal", refused,
         refused ? Format("opening it was refused, attempt %u", attempts)
                 : Format("it could be opened %u times", attempts));
}

// Takes what has been broadcast meanwhile. True when something of it is about the folder.
bool Selftest::Hear()
{
    const WString folder = scan::FoldPath(m_folder) + WCHAR('\\');
    suite::Detection detection;
    while (m_feed->Next(detection, GetTickCount64()))
        if (scan::FoldPath(FieldText(detection.record.infectedPath)).starts_with(folder))
            m_heard.push_back(detection.record);
    return !m_heard.empty();
}

void Selftest::Detection()
{
    unsigned files = 0;
    ULONGLONG next = 0;
    // Written again now and then, since a new folder is followed a moment after it was made.
    const bool heard = Until([&] {
        if (!m_prevents && GetTickCount64() >= next) {
            Write(m_folder + Format(TEXT("\\written%u.com"), ++files));
            next = GetTickCount64() + 2000;
        }
        return Hear();
    });
    if (!heard)
        return Note("detection", false, "no detection was broadcast");
    const AsDetectionRecord& record = m_heard.front();
    Note("detection", true, "broadcast as " + Printable(FieldText(record.threatName)));
}

void Selftest::Report()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const WString log = ServiceFolder() + Format(TEXT("Log\\%04d%02d%02d.VLG"), now.wYear, now.wMonth, now.wDay);
    const WString folder = m_folder + WCHAR('\\');
    const std::string wanted(reinterpret_cast<const char*>(folder.data()), folder.size() * sizeof(WCHAR));
    const bool logged = Until([&] {
        const auto text = FileBytes(log, std::size_t{1} << 30);
        return text && text->find(wanted) != std::string::npos;
    });
    Note("log", logged, logged ? "a line in " + Printable(log) : "no line in " + Printable(log));
}

std::vector<WString> Selftest::Kept() const
{
    const QuarantineList list(m_store);
    const WString folder = scan::FoldPath(m_folder) + WCHAR('\\');
    std::vector<WString> names;
    for (const QuarantineEntry& entry : list.Entries())
        if (scan::FoldPath(entry.source).starts_with(folder))
            names.push_back(entry.name);
    return names;
}

void Selftest::Quarantine()
{
    if (m_heard.empty())
        return Note("quarantine", false, "nothing was detected");
    const AsDetectionRecord& record = m_heard.front();
    const bool second = record.firstResult == AS_RESULT_FAILED;
    const std::uint32_t action = second ? record.secondAction : record.firstAction;
    const std::string taken = suite::ActionText(action, second ? record.secondResult : record.firstResult);
    if (action != AS_ACTION_QUARANTINE)
        return Skip("quarantine", "the settings have another action: " + taken);
    const bool kept = Until([&] {
        const std::vector<WString> names = Kept();
        const FileSizes files = m_store.Files();
        return !names.empty() && files.contains(LowerCase(names.front()));
    });
    Note("quarantine", kept, kept ? "the file is there, with its record" : taken + ", but it is not in quarantine");
}

// True when neither the folder nor anything from it in quarantine is left.
bool Selftest::Delete()
{
    WIN32_FIND_DATAW found{};
    {
        const FindHandle find(FindFirstFileW((m_folder + TEXT("\\*.com")).c_str(), &found));
        for (BOOL more = static_cast<bool>(find); more; more = FindNextFileW(find.Get(), &found))
            DeleteAnyFile(m_folder + TEXT("\\") + found.cFileName);
    }
    const std::vector<WString> names = Kept();
    if (!names.empty())
        DeleteFromQuarantine(m_store, names);
    return (RemoveDirectoryW(m_folder.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND ||
            GetLastError() == ERROR_PATH_NOT_FOUND) &&
           names.empty();
}

void Selftest::CleanUp() noexcept
{
    if (!m_made)
        return;
    m_made = false;
    try {
        for (const ULONGLONG end = GetTickCount64() + 3000; !Delete() && GetTickCount64() < end;)
            Sleep(PollMilliseconds);
    } catch (const std::exception&) {
        // The step that failed has been told of.
    }
}

void Selftest::Run()
{
    if (!CreateDirectoryW(m_folder.c_str(), nullptr))
        FailWith(GetLastError(), Printable(m_folder));
    m_made = true;
    m_feed.emplace("vlctl_selftest", m_end.Get());
    Note("test file", true, "in " + Printable(m_folder));
    if (m_prevents)
        Refusal();
    else
        Skip("refusal", "not in this mode: files are scanned after a write");
    Detection();
    Report();
    Quarantine();
    m_feed.reset();
    // A file that was still being put away comes to the quarantine after the others have left it.
    Note("clean-up", Until([&] { return Delete(); }), "the folder, and what it had in quarantine");
    m_made = false;
}

// The first guarded folder that is there.
WString Place(const Settings& settings, const EngineReport& engine)
{
    if (!settings.folder.empty())
        return scan::ToWindows(std::filesystem::absolute(scan::ToHostUtf8(settings.folder)).lexically_normal());
    for (const std::string& folder : engine.folders)
        if (!folder.ends_with(" (missing)"))
            return scan::ToWindows(scan::ToHostUtf8(folder));
    throw CommandError(ExitFailed, "no guarded folder is known",
                       "name some as Folder0, Folder1, ... in ArdScan.ini, or one with --folder");
}

void Test(const Settings& settings, vlt::ctl::Run& run)
{
    const SERVICE_STATUS_PROCESS service = QueryService(OpenInstalledService(SERVICE_QUERY_STATUS));
    if (service.dwCurrentState != SERVICE_RUNNING)
        throw CommandError(ExitNoService, Format("the service is %s", ServiceStateName(service.dwCurrentState)),
                           "vlctl service start");
    if (!ReadSwitch(SettingId::IOScanE))
        throw CommandError(ExitFailed, "monitoring is switched off", "vlctl settings set IOScanE on");
    const EngineReport engine = ReadEngineReport(ServiceFolder(), service.dwProcessId);
    suite::InterruptEvent();
    Selftest test(settings, Place(settings, engine), engine);
    test.Run();
    run.exit = test.Passed() ? ExitDone : ExitNo;
    if (run.json)
        return PrintAnswer(run, {{"passed", test.Passed()}, {"mode", engine.mode}, {"steps", test.Steps()}});
    std::string text;
    for (const Json& step : test.Steps())
        text += Painted(Format("%-8s", ValueText(step["result"])), ValueText(step["result"])) +
                Format("  %-11s %s\n", ValueText(step["step"]), ValueText(step["detail"]));
    Print(text + (test.Passed() ? "passed\n" : "failed: vlctl doctor looks for the cause\n"));
}

} // namespace

void AddSelftestCommand(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word test = Word(app).Verb("selftest", "Let the service catch a harmless test file; 1 when it does not",
                                     [kept, &run] { Test(*kept, run); });
    test.Text("--folder", kept->folder, "A guarded folder (default: the first one)");
    test.Number("--timeout", kept->timeoutSeconds, 1, 3600, "Longest wait in seconds");
    test.Json(run);
}

} // namespace vlt::ctl
