#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/platform/Fails.h"
#include "tests/support/Support.h"

#include <filesystem>
#include <sstream>
#include <vector>
#ifndef _WIN32
#include "platform/posix/core/MachineRoot.h"
#endif

using namespace vlt;
using namespace vlt::test;

namespace
{

BOOL Write(HANDLE source, WORD type, DWORD id, std::vector<const WCHAR*> texts)
{
    return ReportEventW(source, type, 0, id, nullptr, static_cast<WORD>(texts.size()), 0, texts.data(), nullptr);
}

#ifndef _WIN32
std::filesystem::path LogFile(const char* name = "application.jsonl")
{
    return posix::MachineFolder("eventlog") + '/' + name;
}

std::vector<std::string> Lines(const std::string& bytes = ReadBytes(LogFile()))
{
    std::vector<std::string> lines;
    std::istringstream text(bytes);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}
#endif

// Every test begins with an empty log.
class EventLog : public testing::Test
{
protected:
    EventLog()
    {
#ifndef _WIN32
        for (const auto& entry : std::filesystem::directory_iterator(posix::MachineFolder("eventlog")))
            std::filesystem::remove(entry.path());
#endif
    }
};

} // namespace

VLT_CHILD(eventWriter)
{
    const EventSource source(RegisterEventSourceW(nullptr, ToWide(args[0]).c_str()));
    const WString text(2000, static_cast<WCHAR>(args[0][0]));
    for (int i = 0; i < 200; ++i)
        if (!Write(source.Get(), EVENTLOG_INFORMATION_TYPE, 7, {text.c_str()}))
            return 1;
    return 0;
}

TEST_F(EventLog, SourcesAreHandlesAndFailuresAreTold)
{
    const HANDLE source = RegisterEventSourceW(nullptr, TEXT("Vlt Test"));
    ASSERT_NE(nullptr, source);
    EXPECT_TRUE(Write(source, EVENTLOG_ERROR_TYPE, 3, {TEXT("text")}));
    EXPECT_TRUE(Write(source, EVENTLOG_INFORMATION_TYPE, 0xA0000003u, {}));
    EXPECT_TRUE(DeregisterEventSource(source));
#ifdef _WIN32
    GTEST_SKIP() << "Wine stores nothing and takes any handle";
#else
    EXPECT_FAILS(Write(source, EVENTLOG_ERROR_TYPE, 3, {}), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(DeregisterEventSource(source));
    std::filesystem::remove(LogFile());
    std::filesystem::create_directory(LogFile());
    const EventSource other(RegisterEventSourceW(nullptr, TEXT("x")));
    EXPECT_FAILS(Write(other.Get(), EVENTLOG_ERROR_TYPE, 1, {TEXT("x")}), ERROR_ACCESS_DENIED);
#endif
}

#ifndef _WIN32
TEST_F(EventLog, LinesSayWhatWasReported)
{
    const EventSource source(RegisterEventSourceW(nullptr, TEXT("Source \"\u00E9\"")));
    const WCHAR odd[] = {u'l', u'\r', u'\n', 0xD800, u'\\', u'\u20AC', 0};
    ASSERT_TRUE(Write(source.Get(), EVENTLOG_ERROR_TYPE, 0xA0000003u, {odd, TEXT("second")}));
    ASSERT_TRUE(Write(source.Get(), EVENTLOG_WARNING_TYPE, 0, {}));
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(2u, lines.size());
    const std::string tail = std::string("\"source\":\"Source \\\"\u00E9\\\"\",\"type\":\"error\",\"id\":2684354563,") +
                             "\"category\":0,\"pid\":" + std::to_string(GetCurrentProcessId()) +
                             ",\"strings\":[\"l\\u000d\\u000a\\ud800\\\\\u20AC\",\"second\"]}";
    EXPECT_TRUE(lines[0].ends_with(tail)) << lines[0];
    EXPECT_EQ(0u, lines[0].find("{\"time\":\"20"));
    EXPECT_EQ(std::string("{\"time\":\"2026-01-31T12:00:00.000Z\",").size() + tail.size(), lines[0].size());
    EXPECT_TRUE(lines[1].ends_with("\"strings\":[]}"));
}

TEST_F(EventLog, AFullLogIsPutAsideAndLinesOfManyProcessesStayWhole)
{
    const std::size_t full = 8 * 1024 * 1024;
    WriteBytes(LogFile(), "old\n" + std::string(full - 5, '.') + "\n");
    Child a("eventWriter", {"a"});
    Child b("eventWriter", {"b"});
    EXPECT_EQ(0, a.Wait(30000));
    EXPECT_EQ(0, b.Wait(30000));
    const std::string aside = ReadBytes(LogFile("application.1.jsonl"));
    ASSERT_EQ(0u, aside.find("old\n"));
    // A writer that had the full file open while the other put it aside may still have written there.
    const std::vector<std::string> lines = Lines(aside.substr(full) + ReadBytes(LogFile()));
    EXPECT_EQ(400u, lines.size()) << "none is lost";
    for (const std::string& line : lines) {
        const char letter = line.find("\"source\":\"a\"") != std::string::npos ? 'a' : 'b';
        EXPECT_NE(std::string::npos, line.find("[\"" + std::string(2000, letter) + "\"]}"));
    }
}

#endif
