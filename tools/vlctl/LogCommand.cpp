// vlctl log: the detections of one day.
//
// The day's file is UTF-16 with a byte-order mark, one line for each detection: twelve fields between
// bars. A file or threat name may itself hold a bar, so the fields are counted from both ends.
#include "platform/Format.h"
#include "platform/Unique.h"
#include "suite/Channel/DetectionNames.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace vlt::ctl
{

using namespace suite;

namespace
{

constexpr DWORD FollowMilliseconds = 200;

struct Settings {
    std::string date;
    std::string programFolder;
    bool follow = false;
};

std::string Today()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return Format("%04d%02d%02d", now.wYear, now.wMonth, now.wDay);
}

WString LogFolder(const Settings& settings)
{
    WString folder = settings.programFolder.empty() ? FolderOf(InstalledProgram()) : FromUtf8(settings.programFolder);
    if (!folder.empty() && folder.back() != '\\' && folder.back() != '/')
        folder += '\\';
    return folder + TEXT("Log\\");
}

// Reads a growing file of UTF-16 lines from where the last read ended.
class LineReader
{
public:
    explicit LineReader(WString path) : m_path(std::move(path)) {}

    // The whole lines that have come since the last call. Returns false when there is no such file.
    bool Read(std::vector<WString>& lines)
    {
        const FileHandle file(CreateFileW(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) {
            const DWORD error = GetLastError();
            if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
                FailWith(error, Printable(m_path));
            return false;
        }
        LONG high = static_cast<LONG>(m_offset >> 32);
        SetFilePointer(file.Get(), static_cast<LONG>(m_offset), &high, FILE_BEGIN);
        std::array<BYTE, 65536> buffer;
        for (DWORD got = 0; ReadFile(file.Get(), buffer.data(), buffer.size(), &got, nullptr) && got != 0;) {
            m_offset += got;
            for (DWORD i = 0; i < got; ++i)
                Take(buffer[i], lines);
        }
        return true;
    }

private:
    void Take(BYTE byte, std::vector<WString>& lines)
    {
        if (!m_haveLow) {
            m_low = byte;
            m_haveLow = true;
            return;
        }
        m_haveLow = false;
        const WCHAR unit = static_cast<WCHAR>(m_low | (byte << 8));
        if (unit == 0xFEFF && m_line.empty())
            return;
        if (unit != '\n') {
            m_line += unit;
            return;
        }
        if (!m_line.empty() && m_line.back() == '\r')
            m_line.pop_back();
        lines.push_back(std::move(m_line));
        m_line.clear();
    }

    WString m_path;
    ULONGLONG m_offset = 0;
    WString m_line;
    BYTE m_low = 0;
    bool m_haveLow = false;
};

struct Entry {
    WString date, time, kind, threat, file;
    std::array<WString, 4> actions; // first action, its result, second action, its result
};

// False for a line that is not a detection.
bool Parse(const WString& line, Entry& entry)
{
    constexpr std::size_t Leading = 6, Trailing = 4;
    std::vector<std::size_t> bars;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '|')
            bars.push_back(i);
    }
    if (bars.size() < Leading + Trailing + 1)
        return false;
    const auto between = [&](std::size_t left, std::size_t right) { return line.substr(left + 1, right - left - 1); };
    const std::size_t tail = bars.size() - Trailing;
    entry.date = line.substr(0, bars[0]);
    entry.time = between(bars[0], bars[1]);
    entry.kind = between(bars[4], bars[5]);
    entry.threat = between(bars[5], bars[6]);
    entry.file = between(bars[6], bars[tail]);
    for (std::size_t i = 0; i < Trailing; ++i)
        entry.actions[i] = between(bars[tail + i], i + 1 < Trailing ? bars[tail + i + 1] : line.size());
    return true;
}

// What the log holds is text and need not be numbers.
std::string ActionText(const WString& action, const WString& result)
{
    std::uint32_t codes[2] = {};
    const WString* const texts[2] = {&action, &result};
    for (std::size_t i = 0; i < 2; ++i) {
        const std::string text = Printable(*texts[i]);
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), codes[i]);
        if (error != std::errc() || end != text.data() + text.size())
            return Printable(action) + ' ' + Printable(result);
    }
    return ctl::ActionText(codes[0], codes[1]);
}

void PrintEntries(const std::vector<WString>& lines, const Run& run, bool header)
{
    std::vector<std::vector<std::string>> rows;
    if (header)
        rows.push_back({"DATE", "TIME", "THREAT", "FIRST ACTION", "SECOND ACTION", "FILE"});
    std::string json;
    for (const WString& line : lines) {
        Entry entry;
        if (!Parse(line, entry))
            continue;
        if (run.json) {
            json += JsonLine({{"date", Utf8(entry.date)},
                              {"time", Utf8(entry.time)},
                              {"kind", Utf8(entry.kind)},
                              {"threat", Utf8(entry.threat)},
                              {"file", Utf8(entry.file)},
                              {"firstAction", Utf8(entry.actions[0])},
                              {"firstResult", Utf8(entry.actions[1])},
                              {"secondAction", Utf8(entry.actions[2])},
                              {"secondResult", Utf8(entry.actions[3])}});
            continue;
        }
        rows.push_back({Printable(entry.date), Printable(entry.time), Printable(entry.threat),
                        ActionText(entry.actions[0], entry.actions[1]), ActionText(entry.actions[2], entry.actions[3]),
                        Printable(entry.file)});
    }
    if (run.json)
        Print(json);
    else if (!rows.empty())
        Print(Table(rows));
}

void Log(const Settings& settings, Run& run)
{
    const WString folder = LogFolder(settings);
    const auto open = [&](const std::string& day) { return LineReader(folder + FromUtf8(day) + TEXT(".VLG")); };
    std::string day = settings.date.empty() ? Today() : settings.date;
    LineReader reader = open(day);
    std::vector<WString> lines;
    if (!reader.Read(lines) && !settings.follow) {
        run.exit = ExitNo;
        return;
    }
    PrintEntries(lines, run, true);
    while (settings.follow) {
        Sleep(FollowMilliseconds);
        // The day is read first: what was written to the old file up to midnight is not missed.
        const std::string now = settings.date.empty() ? Today() : day;
        lines.clear();
        reader.Read(lines);
        PrintEntries(lines, run, false);
        if (now != day) {
            day = now;
            reader = open(day);
        }
    }
}

std::string CheckDate(const std::string& text)
{
    const bool digits = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return text.size() == 8 && digits ? std::string() : "not a date of the form YYYYMMDD: " + text;
}

} // namespace

void AddLogCommand(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word log =
        Word(app).Verb("log", "Print the virus log of a day; 1 when there is none", [kept, &run] { Log(*kept, run); });
    log.CheckedText("--date", kept->date, "Day as YYYYMMDD (default: today)", CheckDate);
    log.Flag("--follow", kept->follow, "Go on printing what is added, until interrupted");
    log.Text("--program-folder", kept->programFolder, "Folder of the service's program");
    log.Json(run);
}

} // namespace vlt::ctl
