// What a life leaves behind: version records, the extension list, the trace, the text log and the
// virus log.
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/service/Lives.h"

#include <algorithm>
#include <random>
#include <set>

using namespace vlt::test;

namespace
{

// In the form, # stands for a digit.
bool HasForm(std::string_view text, std::string_view form)
{
    return std::equal(text.begin(), text.end(), form.begin(), form.end(),
                      [](char c, char expected) { return expected == '#' ? c >= '0' && c <= '9' : c == expected; });
}

AsDetectionRecord Detection(WStringView threat, WStringView path, WStringView second = {})
{
    AsDetectionRecord record{};
    vlt::CopyToField(record.threatName, threat);
    vlt::CopyToField(record.infectedPath, path);
    vlt::CopyToField(record.secondPath, second);
    record.firstAction = 7;
    record.firstResult = 1;
    record.secondAction = 4294967295u;
    record.secondResult = 2;
    return record;
}

// Runs a life in which the library reports these; returns the lines of the day's log without date
// and time, after checking the file's form.
Lines LogOf(Installation& service, const std::vector<AsDetectionRecord>& records, std::size_t expected)
{
    WriteBytes(service.File("detect.bin"),
               {reinterpret_cast<const char*>(records.data()), records.size() * sizeof(AsDetectionRecord)});
    EXPECT_TRUE(service.Start());
    EXPECT_TRUE(service.Reaches(SERVICE_RUNNING));
    Lines lines;
    const auto read = [&] {
        lines.clear();
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(service.File("Log"), error)) {
            const std::string bytes = ReadBytes(entry.path());
            const WString text(reinterpret_cast<const WCHAR*>(bytes.data()), bytes.size() / 2);
            std::string rest = vlt::ToNarrow(text, CP_UTF8);
            EXPECT_EQ(rest.substr(0, 3), "\xEF\xBB\xBF");
            rest.erase(0, 3);
            for (std::size_t end = 0; (end = rest.find("\r\n")) != std::string::npos; rest.erase(0, end + 2)) {
                const std::string line = rest.substr(0, end);
                EXPECT_TRUE(HasForm(line.substr(0, 16), "########|######|")) << line;
                EXPECT_EQ(line.substr(0, 8) + ".VLG", entry.path().filename().string());
                lines.push_back(line.size() < 16 ? line : line.substr(16));
            }
            EXPECT_EQ(rest, "");
        }
        return lines.size();
    };
    Eventually(20000, [&] { return service.Calls("detected").size() == records.size() && read() >= expected; });
    EXPECT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    EXPECT_TRUE(service.Reaches(SERVICE_STOPPED));
    read();
    return lines;
}

} // namespace

TEST(ServiceRecords, VersionsAreWrittenInTheProductsForm)
{
    const struct {
        const char* minor;
        const char* lastError;
        const char* spywareResult;
        const char* engine;
        const char* spyware;
    } cases[] = {
        {"5", "0", "1", "8.500.1001", "77"},  {"55", "0", "0", "8.550.1001", "(none)"},
        {"550", "6", "0", "8.550.1001", "0"}, {"0", "6", "1", "8.0.1001", "77"},
        {"10", "0", "1", "8.100.1001", "77"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.minor);
        Installation service;
        WriteBytes(service.File("ardentis.ini"), "[Other]\r\nkept = yes \r\n[INFO]\r\nengine=old\r\n");
        service.Instruct("ASGetEngineInformation", "minor", each.minor);
        service.Instruct("ASGetPatternInformation", "version", "-2");
        service.Instruct("ASGetLastError", "result", each.lastError);
        service.Instruct("ASGetSpyWarePatternVersion", "result", each.spywareResult);
        ASSERT_TRUE(service.Live());
        EXPECT_EQ(service.Ini("Info", "Engine"), each.engine);
        EXPECT_EQ(service.Ini("Info", "Pattern"), "4294967294");
        EXPECT_EQ(service.Ini("Info", "SpyWare"), each.spyware);
        EXPECT_EQ(service.Ini("Info", "EngineDLL64"), "9.520.1200");
        EXPECT_EQ(service.Ini("Other", "kept"), "yes");
        EXPECT_EQ(ReadBytes(service.File("ardentis.ini")).find("Engine="), std::string::npos)
            << "the key's text changed";
        const bool error = each.lastError != std::string("0");
        EXPECT_EQ(static_cast<bool>(
                      Holds(service.Transcript(),
                            {"ASGetLastError", "40 .\\Versions.cpp Write error value to ard-entis.ini Spyware=0",
                             "ASGetEngineDefaultExtListW *"})),
                  error);
        EXPECT_TRUE(
            Holds(service.Transcript(), {"40 .\\Settings.cpp ASGetLastError(" + std::string(each.lastError) + ")"}));
    }
}

TEST(ServiceRecords, TheEnginesExtensionListIsRewrittenForDisplay)
{
    const std::string longList = std::string(598, 'L') + ";WBS";
    const struct {
        const char* name;
        std::string list;
        int needed;
        bool refuse;
        std::string expected;
        Lines calls;
    } cases[] = {
        {"cut at a brace, quotes dropped", "\"COM\";E\"XE;{a};b", 0, false, ".{*COM.EXE.WBS", {"512"}},
        {"WBS is there", "A;XWBSX", 0, false, ".{*A.XWBSX", {"512"}},
        {"longer than the first buffer", longList, 603, false, ".{*" + std::string(598, 'L') + ".WBS", {"512", "603"}},
        {"refused twice", "A", 0, true, "old", {"512", "2"}},
        {"asks for more than there is", "A", 0x7FFFFFFF, false, "old", {"512"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service;
        service.Set("DefaultExtension", "old");
        // A text in quotes loses one pair of them on the way through the instructions.
        service.Instruct("ASGetEngineDefaultExtListW", "list", '"' + each.list + '"');
        if (each.needed != 0)
            service.Instruct("ASGetEngineDefaultExtListW", "needed", std::to_string(each.needed));
        if (each.refuse)
            service.Instruct("ASGetEngineDefaultExtListW", "refuse", "1");
        ASSERT_TRUE(service.Live());
        const Value stored = ReadValue(kScanKey, "DefaultExtension");
        EXPECT_EQ(stored.type, REG_SZ);
        EXPECT_EQ(stored.Text(), each.expected);
        EXPECT_EQ(stored.bytes.size(), 2 * (each.expected.size() + 1));
        Lines expected;
        for (const std::string& size : each.calls)
            expected.push_back("ASGetEngineDefaultExtListW size=" + size + " zeroed=true");
        if (each.expected == "old") {
            expected.push_back("ASGetLastError");
            expected.push_back("20 .\\Setreal.cpp Error: WriteEngineDefaultExtList( 0 )");
        }
        expected.push_back("40 .\\Setreal.cpp Success: WriteEngineDefaultExtList");
        const Lines lines = service.Transcript();
        const auto from = std::find(lines.begin(), lines.end(), expected[0]);
        const auto to = std::find(lines.begin(), lines.end(), "ASGetEngineInfo");
        ASSERT_TRUE(from < to);
        EXPECT_TRUE(Matches(Lines(from, to), expected));
    }
}

TEST(ServiceRecords, TracingNeedsItsLibraryAndDoesWithoutOne)
{
    Lines calls;
    {
        Installation service;
        ASSERT_TRUE(service.Live());
        calls = WithoutTrace(service);
    }
    {
        Installation service({.trace = ""});
        ASSERT_TRUE(service.Live());
        EXPECT_TRUE(service.Transcript("vldbg64").empty());
        EXPECT_EQ(WithoutTrace(service).size(), calls.size());
    }
    // Without the extended entry the plain one gets every line, and nobody introduces the component.
    Installation service({.trace = "noex/vldbg64.dll"});
    ASSERT_TRUE(service.Live());
    Lines expected = Join({StartUpToInit(service), StartAfterInit(), Stop()});
    expected.erase(expected.begin());
    for (std::string& line : expected) {
        if (line[0] == '2' || line[0] == '4' || line[0] == '5')
            line.insert(0, "TraceA ");
    }
    EXPECT_TRUE(Matches(LinesBy(By::Rest, service), expected));
}

TEST(ServiceRecords, TheTextLogHasTheMilestonesOnceItExists)
{
    Installation service;
    WriteBytes(service.File("VLNTSRV.LOG"), "before\r\n");
    ASSERT_TRUE(service.Live());
    // The watchers write what follows, beside each other.
    const std::string time = "####/##/## ##:## ";
    const std::string form = "before\r\n" + time + "ASInitScanW Success\r\n\r\n" + time + "ASSetConfigW = 1\r\n\r\n" +
                             time + "MonitorStart!\r\n\r\n" + time;
    const std::string log = ReadBytes(service.File("VLNTSRV.LOG"));
    EXPECT_TRUE(HasForm(log.substr(0, form.size()), form)) << log;
    EXPECT_NE(log.find("RegChange Called!\r\n\r\n", form.size()), std::string::npos) << log;
}

// Nothing can be written beside the program: no milestone, no version, no virus log, and no failure.
TEST(ServiceRecords, AProgramFolderThatTakesNothingStopsNobody)
{
    Installation service;
    for (const char* name : {"VLNTSRV.LOG", "ardentis.ini"})
        std::filesystem::create_directory(service.File(name));
    WriteBytes(service.File("Log"), "");
    const AsDetectionRecord record = Detection(TEXT("T"), TEXT("C:\\x"));
    WriteBytes(service.File("detect.bin"), {reinterpret_cast<const char*>(&record), sizeof record});
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
    const std::string log = "..\\..\\ARDCommon\\VirusLog.cpp ";
    ASSERT_TRUE(Eventually(20000, [&] {
        return static_cast<bool>(
            Holds(service.Transcript(), {"50 .\\Detection.cpp Leave ThreadWriteVirusLogForRealTimeScan()..."}));
    }));
    Lines lines = service.Transcript();
    std::erase_if(lines, [](const std::string& line) {
        return line.find("VirusLog") == std::string::npos &&
               line.find("RealtimeScanVirusCallBack") == std::string::npos;
    });
    EXPECT_TRUE(Matches(
        lines, {"40 .\\Detection.cpp RealtimeScanVirusCallBack called!",
                "50 .\\Detection.cpp Enter ThreadWriteVirusLogForRealTimeScan()...",
                "40 " + log + "Enter CVirusLogForRealTimeScan2::WriteVirusLog()...",
                "40 " + log + "Enter CVirusLogForRealTimeScan2::WriteVirusLogToFile()...",
                "20 " + log + "*WriteVirusLogToFile() - Failed to CreateFile(). LastError[0x0000000*]",
                "20 " + log + "*WriteVirusLog() - Failed to WriteVirusLogToFile().",
                "20 .\\Detection.cpp *ThreadWriteVirusLogForRealTimeScan() - Failed to lpcVirusLog->WriteVirusLog().",
                "50 .\\Detection.cpp Leave ThreadWriteVirusLogForRealTimeScan()..."}));
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
    EXPECT_EQ(service.Status().dwWin32ExitCode, 0u);
}

TEST(ServiceRecords, AnIniFileOfAnyBytesIsSurvived)
{
    std::mt19937 random(20240229);
    for (int round = 0; round < 4; ++round) {
        Installation service;
        std::string bytes;
        for (int i = 0; i < 70000; ++i)
            bytes +=
                static_cast<char>(round == 3 && i % 7 != 0 ? "[]=\r\n;\" "[random() % 8] : static_cast<char>(random()));
        if (round == 1)
            bytes =
                "[debug]\r\nhot_switch=99999999999999999999\r\nlog_path=" + std::string(60000, 'p') + "\r\n" + bytes;
        if (round == 2)
            bytes = "\xFF\xFE" + bytes;
        WriteBytes(service.File("ardentis.ini"), bytes);
        ASSERT_TRUE(service.Live());
        EXPECT_EQ(service.Status().dwWin32ExitCode, 0u);
        EXPECT_EQ(service.Calls("ASStartScan").size(), 1u);
    }
}

TEST(ServiceRecords, ManyDetectionsAtOnceAreWholeLines)
{
    for (const char* slot : {"1", "2"}) {
        Installation service;
        service.Instruct("detect", "slot", slot);
        std::vector<AsDetectionRecord> records;
        std::set<std::string> expected;
        for (int i = 0; i < 40; ++i) {
            const std::string path = "C:\\" + std::string(static_cast<std::size_t>(i), 'x') + std::to_string(i);
            records.push_back(Detection(TEXT("T"), vlt::ToWide(path)));
            expected.insert("01048576|00000001|2|" + std::string(path.size() == 2 ? "0" : "1") + "|T|" + path +
                            "|7|1|-1|2");
        }
        const Lines lines = LogOf(service, records, records.size());
        EXPECT_EQ(lines.size(), records.size());
        EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
    }
}
