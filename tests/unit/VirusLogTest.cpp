// The day's virus log and the detection callback in front of it, on real files.
#include "ARDCommon/VirusLog.h"
#include "ARDCommon/ProgramFolder.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/Detection.h"
#include "tests/support/Support.h"
#include "tests/unit/TraceCapture.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace
{

using vlt::test::Eventually;

AsDetectionRecord Detection(WStringView threat, WStringView path, WStringView second = {})
{
    AsDetectionRecord record{};
    vlt::CopyToField(record.threatName, threat);
    vlt::CopyToField(record.infectedPath, path);
    vlt::CopyToField(record.secondPath, second);
    record.firstAction = 2;
    record.firstResult = 1;
    record.secondAction = 3;
    record.secondResult = 0xFFFFFFFF;
    return record;
}

// Works on a day that no clock shows, in the Log folder of the test program.
class VirusLog : public testing::Test
{
protected:
    void SetUp() override { DeleteFileW(FileName().c_str()); }
    void TearDown() override { DeleteFileW(FileName().c_str()); }

    WString FileName() const { return vlt::ProgramFolder() + TEXT("Log\\20070605.VLG"); }

    // The file as UTF-16 units; empty when there is none.
    static WString Read(const WString& file)
    {
        const vlt::FileHandle handle(CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
        LARGE_INTEGER size{};
        if (!handle || !GetFileSizeEx(handle.Get(), &size))
            return {};
        EXPECT_EQ(size.QuadPart % 2, 0);
        WString text(static_cast<std::size_t>(size.QuadPart) / 2, 0);
        DWORD read = 0;
        EXPECT_TRUE(ReadFile(handle.Get(), text.data(), static_cast<DWORD>(size.QuadPart), &read, nullptr));
        return text;
    }

    const SYSTEMTIME m_day{2007, 6, 2, 5, 23, 59, 59, 900};
    CVirusLogForRealTimeScan2 m_log;
};

TEST_F(VirusLog, OneByteOrderMarkAtTheBeginning)
{
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("first\r\n")));
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("s\u00E9cond\r\n")));
    EXPECT_EQ(Read(FileName()), TEXT("\uFEFFfirst\r\ns\u00E9cond\r\n"));
}

TEST_F(VirusLog, OtherDayOtherFile)
{
    const SYSTEMTIME next{2007, 6, 3, 6, 0, 0, 0, 100};
    const WString other = vlt::ProgramFolder() + TEXT("Log\\20070606.VLG");
    DeleteFileW(other.c_str());
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("a\r\n")));
    EXPECT_TRUE(m_log.WriteVirusLogToFile(next, TEXT("b\r\n")));
    EXPECT_EQ(Read(FileName()), TEXT("\uFEFFa\r\n"));
    EXPECT_EQ(Read(other), TEXT("\uFEFFb\r\n"));
    DeleteFileW(other.c_str());
}

TEST_F(VirusLog, SecondWriterIsRefusedAndAReaderIsNot)
{
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("a\r\n")));
    {
        const vlt::FileHandle reader(CreateFileW(FileName().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("b\r\n")));
    }
    {
        const vlt::FileHandle writer(CreateFileW(FileName().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                 nullptr, OPEN_EXISTING, 0, nullptr));
        ASSERT_TRUE(writer);
        const auto lines = vlt::test::Traced([&] { EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, TEXT("lost\r\n"))); });
        const std::vector<std::string> expected = {
            "40 VirusLog.cpp: Enter CVirusLogForRealTimeScan2::WriteVirusLogToFile()...",
            "20 VirusLog.cpp: *** CVirusLogForRealTimeScan2::WriteVirusLogToFile() - Failed to CreateFile(). "
            "LastError[0x00000020]",
        };
        EXPECT_EQ(lines, expected);
    }
    EXPECT_EQ(Read(FileName()), TEXT("\uFEFFa\r\nb\r\n"));
}

TEST_F(VirusLog, FolderInPlaceOfTheFile)
{
    ASSERT_TRUE(CreateDirectoryW((vlt::ProgramFolder() + TEXT("Log")).c_str(), nullptr) ||
                GetLastError() == ERROR_ALREADY_EXISTS);
    ASSERT_TRUE(CreateDirectoryW(FileName().c_str(), nullptr));
    EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, TEXT("lost\r\n")));
    EXPECT_TRUE(RemoveDirectoryW(FileName().c_str()));
}

TEST_F(VirusLog, NullRecordIsRefused)
{
    const auto lines = vlt::test::Traced([&] { EXPECT_FALSE(m_log.WriteVirusLog(nullptr)); });
    const std::vector<std::string> expected = {
        "40 VirusLog.cpp: Enter CVirusLogForRealTimeScan2::WriteVirusLog()...",
        "20 VirusLog.cpp: *** CVirusLogForRealTimeScan2::WriteVirusLog() - _lpVirusInfo was invalid handle.",
    };
    EXPECT_EQ(lines, expected);
}

// Lines of today, through WriteVirusLog and the callback. What stood in the file before is kept apart.
class VirusLogLine : public VirusLog
{
protected:
    static WString Today()
    {
        SYSTEMTIME now{};
        GetLocalTime(&now);
        return vlt::Format(TEXT("%04d%02d%02d"), int{now.wYear}, int{now.wMonth}, int{now.wDay});
    }
    static WString FileOf(const WString& day) { return vlt::ProgramFolder() + TEXT("Log\\") + day + TEXT(".VLG"); }

    // A threat name that is not in the log yet; a process id would come again on the same day.
    static WString UniqueMark()
    {
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        return vlt::Format(TEXT("mark%u-%u-%u"), now.dwHighDateTime, now.dwLowDateTime, GetCurrentProcessId());
    }

    // What `write` adds to the log, in the file of the day before it or of the one after it: the
    // test may run over midnight.
    template <typename Write>
    static WString Added(Write&& write)
    {
        const WString first = Today();
        const WString before = Read(FileOf(first));
        write();
        WString text = Read(FileOf(first)).substr(before.size());
        const WString last = Today();
        if (last != first)
            text += Read(FileOf(last));
        if (!text.empty() && text[0] == 0xFEFF)
            text.erase(0, 1);
        return text;
    }

    // The line without its date and time, whose form is checked here.
    static WString WithoutTime(const WString& line)
    {
        for (std::size_t i = 0; i < 16 && i < line.size(); ++i)
            EXPECT_TRUE(i == 8 || i == 15 ? line[i] == TEXT('|') : line[i] >= TEXT('0') && line[i] <= TEXT('9'));
        return line.size() > 16 ? line.substr(16) : WString();
    }

    WString LineOf(const AsDetectionRecord& record) const
    {
        return WithoutTime(Added([&] { EXPECT_TRUE(m_log.WriteVirusLog(&record)); }));
    }
};

TEST_F(VirusLogLine, Fields)
{
    EXPECT_EQ(LineOf(Detection(TEXT("Test/A"), TEXT("C:\\a b\\x.exe"))),
              TEXT("01048576|00000001|2|1|Test/A|C:\\a b\\x.exe|2|1|3|-1\r\n"));
    EXPECT_EQ(LineOf(Detection(TEXT("T"), TEXT("C:\\x.zip"), TEXT("in.exe"))),
              TEXT("01048576|00000001|2|1|T|C:\\x.zip (in.exe)|2|1|3|-1\r\n"));
    EXPECT_EQ(LineOf(Detection(TEXT("T"), TEXT("C:"))), TEXT("01048576|00000001|2|0|T|C:|2|1|3|-1\r\n"));
    EXPECT_EQ(LineOf(Detection(TEXT(""), TEXT("C:"))), TEXT("01048576|00000001|2|0||C:|2|1|3|-1\r\n"))
        << "only both empty is the empty case";
    EXPECT_EQ(LineOf(Detection(TEXT("T"), TEXT(""), TEXT("in.exe"))),
              TEXT("01048576|00000001|2|1|T| (in.exe)|2|1|3|-1\r\n"));
    EXPECT_EQ(LineOf(Detection(TEXT(""), TEXT(""), TEXT("in.exe"))),
              TEXT("01048576|00000001|2|1|---|in.exe|2|1|3|-1\r\n"));
    EXPECT_EQ(LineOf(Detection(TEXT(""), TEXT(""))), TEXT("01048576|00000001|2|1|---||2|1|3|-1\r\n"));
}

TEST_F(VirusLogLine, FieldsWithoutTerminator)
{
    AsDetectionRecord record{};
    std::fill(std::begin(record.threatName), std::end(record.threatName), TEXT('t'));
    std::fill(std::begin(record.infectedPath), std::end(record.infectedPath), TEXT('p'));
    std::fill(std::begin(record.secondPath), std::end(record.secondPath), TEXT('s'));
    EXPECT_EQ(LineOf(record), TEXT("01048576|00000001|2|1|") + WString(132, TEXT('t')) + TEXT("|") +
                                  WString(260, TEXT('p')) + TEXT(" (") + WString(260, TEXT('s')) +
                                  TEXT(")|0|0|0|0\r\n"));
}

TEST_F(VirusLogLine, TraceOfADetection)
{
    AsDetectionRecord record = Detection(TEXT("T"), TEXT("C:\\x"));
    record.noLog = 1; // or the callback's own thread would write among these lines
    const auto lines = vlt::test::Traced([&] {
        RealTimeScanVirusCallBack(nullptr, &record);
        EXPECT_EQ(ThreadWriteVirusLogForRealTimeScan(new AsDetectionRecord(record)), 0u);
    });
    const std::vector<std::string> expected = {
        "40 Detection.cpp: RealtimeScanVirusCallBack called!",
        "50 Detection.cpp: Enter ThreadWriteVirusLogForRealTimeScan()...",
        "40 VirusLog.cpp: Enter CVirusLogForRealTimeScan2::WriteVirusLog()...",
        "40 VirusLog.cpp: Enter CVirusLogForRealTimeScan2::WriteVirusLogToFile()...",
        "40 VirusLog.cpp: Leave CVirusLogForRealTimeScan2::WriteVirusLogToFile()...",
        "40 VirusLog.cpp: Leave CVirusLogForRealTimeScan2::WriteVirusLog()...",
        "50 Detection.cpp: Leave ThreadWriteVirusLogForRealTimeScan()...",
    };
    EXPECT_EQ(lines, expected);
}

TEST_F(VirusLogLine, CallbackLogsUnlessTheRecordForbidsIt)
{
    const WString mark = UniqueMark();
    const WString lines = Added([&] {
        const WString day = Today();
        auto record = std::make_unique<AsDetectionRecord>(Detection(mark, TEXT("C:\\silent.exe")));
        record->noLog = 1;
        RealTimeScanVirusCallBack(nullptr, record.get());
        RealTimeScanVirusCallBack(nullptr, nullptr);
        record->noLog = 0;
        vlt::CopyToField(record->infectedPath, WStringView(TEXT("C:\\loud.exe")));
        RealTimeScanVirusCallBack(nullptr, record.get());
        record.reset(); // the library's record ends with the call; the thread has its own
        EXPECT_TRUE(Eventually(20000, [&] {
            return (Read(FileOf(day)) + Read(FileOf(Today()))).find(mark + TEXT("|C:\\loud.exe")) != WString::npos;
        }));
    });
    EXPECT_EQ(lines.find(TEXT("silent")), WString::npos);
}

// The library calls back on many threads at once; no line may be lost, torn or joined with another.
TEST_F(VirusLogLine, ConcurrentDetectionsEachGetTheirLine)
{
    constexpr int kThreads = 8;
    constexpr int kEach = 25;
    const WString mark = UniqueMark();
    const auto wanted = [&](int thread, int i) {
        return TEXT("01048576|00000001|2|1|") + mark + vlt::Format(TEXT("|C:\\%d-%d.exe|2|1|3|-1\r\n"), thread, i);
    };
    const WString lines = Added([&] {
        const WString day = Today();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&, thread] {
                for (int i = 0; i < kEach; ++i) {
                    const AsDetectionRecord record = Detection(mark, vlt::Format(TEXT("C:\\%d-%d.exe"), thread, i));
                    RealTimeScanVirusCallBack(nullptr, &record);
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_TRUE(Eventually(40000, [&] {
            const WString text = Read(FileOf(day)) + (Today() != day ? Read(FileOf(Today())) : WString());
            std::size_t count = 0;
            for (std::size_t at = text.find(mark); at != WString::npos; at = text.find(mark, at + 1))
                ++count;
            return count == kThreads * kEach && text.ends_with(TEXT("\r\n"));
        }));
    });
    for (int thread = 0; thread < kThreads; ++thread)
        for (int i = 0; i < kEach; ++i)
            EXPECT_NE(lines.find(wanted(thread, i)), WString::npos) << thread << "-" << i;
}

TEST(Detection, DisplayText)
{
    WCHAR text[260];
    EXPECT_EQ(GetDetectFileText(Detection(TEXT("T"), TEXT("C:\\x")), text, 260), 1);
    EXPECT_EQ(WString(text), TEXT("C:\\x"));
    EXPECT_EQ(GetDetectFileText(Detection(TEXT("T"), TEXT("C:\\x"), TEXT("y")), text, 260), 1);
    EXPECT_EQ(WString(text), TEXT("C:\\x (y)"));
    EXPECT_EQ(GetDetectFileText(Detection(TEXT("T"), TEXT("")), text, 260), 1);
    EXPECT_EQ(WString(text), TEXT(""));
    text[0] = TEXT('#');
    EXPECT_EQ(GetDetectFileText(Detection(TEXT("T"), TEXT(""), TEXT("y")), text, 260), 0);
    EXPECT_EQ(text[0], TEXT('#'));

    const AsDetectionRecord full = Detection(TEXT("T"), WString(259, TEXT('p')), WString(259, TEXT('s')));
    EXPECT_EQ(GetDetectFileText(full, text, 260), 1);
    EXPECT_EQ(WString(text), WString(259, TEXT('p')));
    EXPECT_EQ(GetDetectFileText(Detection(TEXT("T"), TEXT("C:\\x"), TEXT("y")), text, 7), 1);
    EXPECT_EQ(WString(text), TEXT("C:\\x ("));
}

} // namespace
