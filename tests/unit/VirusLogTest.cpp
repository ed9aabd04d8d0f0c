// The day's virus log and the detection callback in front of it, on real files.
#include "ARDCommon/VirusLog.h"
#include "ARDCommon/ProgramFolder.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/Detection.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <utility>

namespace
{

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

    static WString FileOf(const WString& day) { return vlt::ProgramFolder() + TEXT("Log\\") + day + TEXT(".VLG"); }
    static WString FileName() { return FileOf(TEXT("20070605")); }
    static WString Today()
    {
        SYSTEMTIME now{};
        GetLocalTime(&now);
        return vlt::Format(TEXT("%04d%02d%02d"), int{now.wYear}, int{now.wMonth}, int{now.wDay});
    }

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

TEST_F(VirusLog, EachDayHasItsFileWithOneMark)
{
    const SYSTEMTIME next{2007, 6, 3, 6, 0, 0, 0, 100};
    const WString other = FileOf(TEXT("20070606"));
    DeleteFileW(other.c_str());
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("a\r\n")));
    EXPECT_TRUE(m_log.WriteVirusLogToFile(next, TEXT("b\r\n")));
    EXPECT_TRUE(m_log.WriteVirusLogToFile(m_day, TEXT("s\u00E9cond\r\n")));
    EXPECT_EQ(Read(FileName()), TEXT("\uFEFFa\r\ns\u00E9cond\r\n"));
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
        EXPECT_FALSE(m_log.WriteVirusLogToFile(m_day, TEXT("lost\r\n")));
    }
    EXPECT_EQ(Read(FileName()), TEXT("\uFEFFa\r\nb\r\n"));
}

// The lines of today's log, bit for bit but for date and time, whose form is checked.
TEST_F(VirusLog, LineOfEachKindOfRecord)
{
    AsDetectionRecord full{}; // no field has a terminator
    std::fill(std::begin(full.threatName), std::end(full.threatName), TEXT('t'));
    std::fill(std::begin(full.infectedPath), std::end(full.infectedPath), TEXT('p'));
    std::fill(std::begin(full.secondPath), std::end(full.secondPath), TEXT('s'));
    const std::pair<AsDetectionRecord, WString> cases[] = {
        {Detection(TEXT("Test/A"), TEXT("C:\\a b\\x.exe")), TEXT("2|1|Test/A|C:\\a b\\x.exe|2|1|3|-1")},
        {Detection(TEXT("T"), TEXT("C:\\x.zip"), TEXT("in")), TEXT("2|1|T|C:\\x.zip (in)|2|1|3|-1")},
        {Detection(TEXT("T"), TEXT("C:")), TEXT("2|0|T|C:|2|1|3|-1")},
        {Detection(TEXT(""), TEXT("C:")), TEXT("2|0||C:|2|1|3|-1")}, // only both empty is the empty case
        {Detection(TEXT("T"), TEXT(""), TEXT("in")), TEXT("2|1|T| (in)|2|1|3|-1")},
        {Detection(TEXT(""), TEXT(""), TEXT("in")), TEXT("2|1|---|in|2|1|3|-1")},
        {Detection(TEXT(""), TEXT("")), TEXT("2|1|---||2|1|3|-1")},
        {full, TEXT("2|1|") + WString(132, TEXT('t')) + TEXT("|") + WString(260, TEXT('p')) + TEXT(" (") +
                   WString(260, TEXT('s')) + TEXT(")|0|0|0|0")},
    };
    for (const auto& [record, expected] : cases) {
        WString day;
        WString text;
        do { // again when the day ends meanwhile
            day = Today();
            const std::size_t before = Read(FileOf(day)).size();
            EXPECT_TRUE(m_log.WriteVirusLog(&record));
            text = Read(FileOf(day)).substr(before);
        } while (day != Today());
        text.erase(0, text[0] == 0xFEFF);
        ASSERT_GT(text.size(), 16u);
        EXPECT_EQ(text.substr(0, 9), day + TEXT("|"));
        EXPECT_EQ(text.find_first_not_of(TEXT("0123456789"), 9), 15u);
        EXPECT_EQ(text.substr(15), TEXT("|01048576|00000001|") + expected + TEXT("\r\n"));
    }
    EXPECT_FALSE(m_log.WriteVirusLog(nullptr));
    RealTimeScanVirusCallBack(nullptr, nullptr);
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
