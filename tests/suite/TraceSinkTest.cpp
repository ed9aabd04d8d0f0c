// vldbg64.dll as the suite's programs load it.
#include "ARDCommon/VlDebugAbi.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

using namespace vlt::test;

namespace
{

constexpr unsigned kSoon = 30000; // a limit, not an expectation
#ifdef _WIN32                     // Wine appends in two steps, so that two writers may meet at one place
constexpr int kProcesses = 1, kThreads = 1, kLines = 1000;
#else
constexpr int kProcesses = 4, kThreads = 4, kLines = 250;
#endif

struct Sink {
    template <typename Function>
    Function Entry(const char* name) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module.Get(), name)));
    }

    vlt::LibraryHandle module{
        LoadLibraryW((vlt::ToWide(ProductFolder().string(), CP_UTF8) + TEXT("/vldbg64.dll")).c_str())};
    InitDebug_t init = Entry<InitDebug_t>("InitDebug");
    InitDebugEx_t initEx = Entry<InitDebugEx_t>("InitDebugEx");
    TraceA_t trace = Entry<TraceA_t>("TraceA");
    TraceExA_t traceEx = Entry<TraceExA_t>("TraceExA");
    DumpA_t dump = Entry<DumpA_t>("DumpA");
};

class TraceSink : public testing::Test
{
protected:
    void Set(const char* key, const std::string& value) const
    {
        WritePrivateProfileStringW(TEXT("debug"), vlt::ToWide(key).c_str(), vlt::ToWide(value).c_str(),
                                   folder.PathW("ardentis.ini").c_str());
    }
    void SetLog(const char* name) const { Set("log_path", vlt::ToNarrow(folder.PathW(name))); }
    std::string Ini() const { return vlt::ToNarrow(folder.PathW("ardentis.ini")); }
    std::string Log(const char* name = "ard.log") const { return ReadBytes(folder.HostPath(name)); }

    // Traces until a line of the text has come or, with false, comes no more.
    bool Recorded(const std::string& text, int level, bool expected = true, const char* log = "ard.log")
    {
        return Eventually(kSoon, [&] {
            const auto size = Log(log).size();
            sink.trace("f.cpp", 1, level, "%s", text.c_str());
            return (Log(log).find(text, size) != std::string::npos) == expected;
        });
    }

    TempFolder folder;
    Sink sink;
};

} // namespace

VLT_CHILD(trace_writer)
{
    const Sink sink;
    sink.initEx(args[0].c_str(), TRUE, "writer", 1);
    const std::string padding(60, 'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < kLines; ++n)
                sink.traceEx(".\\writer.cpp", n, 40, "writer", 1, "%s",
                             (args[1] + ' ' + std::to_string(t) + ' ' + std::to_string(n) + ' ' + padding).c_str());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return 0;
}

TEST_F(TraceSink, LosesAndTearsNothingWhileManyWriteAndTheFileIsPutAside)
{
    ASSERT_TRUE(sink.init && sink.initEx && sink.trace && sink.traceEx && sink.dump);
    Set("hot_switch", "1");
    Set("max_size", "16");
    Set("max_files", "99");
    SetLog("ard.log");
    {
        std::vector<Child> writers;
        for (int p = 0; p < kProcesses; ++p)
            writers.emplace_back("trace_writer", std::vector<std::string>{Ini(), std::to_string(p)});
        for (Child& writer : writers)
            ASSERT_EQ(writer.Wait(50000), 0);
    }
    const std::regex whole(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+\.\d+ +40 writer \.\\writer\.cpp\((\d+)\): (\d \d \1) x{60}\r)");
    std::map<std::string, int> seen;
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.HostPath())) {
        if (!entry.path().filename().string().starts_with("ard.log"))
            continue;
        ++files;
        std::istringstream text(ReadBytes(entry.path()));
        for (std::string line; std::getline(text, line);) {
            std::smatch parts;
            ASSERT_TRUE(std::regex_match(line, parts, whole)) << entry.path() << ": " << line;
            ++seen[parts[2]];
        }
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(kProcesses * kThreads * kLines));
    for (const auto& [text, count] : seen)
        EXPECT_EQ(count, 1) << text;
    EXPECT_GT(files, 5);
}

TEST_F(TraceSink, FollowsItsSettingsWhileItRuns)
{
    sink.trace("f.cpp", 1, 20, "%s", "nobody has begun");
    SetLog("ard.log");
    Set("hot_switch", "0");
    sink.init(Ini().c_str(), FALSE);
    sink.trace("f.cpp", 1, 20, "%s", "switched off");
    EXPECT_EQ(Log(), "");
    Set("hot_switch", "1");
    EXPECT_TRUE(Recorded("detail", 50));
    Set("level", "40");
    EXPECT_TRUE(Recorded("too much detail", 50, false));
    EXPECT_TRUE(Recorded("progress", 40));
    SetLog("made/second.log");
    EXPECT_TRUE(Recorded("elsewhere", 40, true, "made/second.log"));
    Set("hot_switch", "0");
    EXPECT_TRUE(Recorded("nothing", 20, false, "made/second.log"));
}

TEST_F(TraceSink, WritesOneLineForAMessageAndRowsForADump)
{
    SetLog("ard.log");
    Set("hot_switch", "1");
    sink.init(Ini().c_str(), TRUE);
    SetLastError(1234);
    sink.traceEx(".\\a.cpp", 12, 20, "VlntSrv", 1, "%s", "100% of\r\ntwo\x1b[2J lines\r\n");
    sink.traceEx(nullptr, 3, 40, nullptr, 1, "%s", std::string(5000, 'z').c_str());
    sink.dump("b.cpp", 7, 50, "0123456789ABCDEF\n!", 18);
    EXPECT_EQ(GetLastError(), 1234u);
    const std::string log = Log();
    EXPECT_NE(log.find(" 20 VlntSrv .\\a.cpp(12): 100% of  two [2J lines\r\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" 40 - ?(3): " + std::string(2047, 'z') + "\r\n"), std::string::npos);
    EXPECT_NE(log.find(" 50 - b.cpp(7): 18 of 18 bytes\r\n"
                       "    0000 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46  0123456789ABCDEF\r\n"
                       "    0010 0a 21                                            .!\r\n"),
              std::string::npos)
        << log;
}

TEST_F(TraceSink, TellsWhatCouldNotBeWritten)
{
    std::filesystem::create_directory(folder.HostPath("ard.log")); // no file
    SetLog("ard.log");
    Set("hot_switch", "1");
    sink.init(Ini().c_str(), TRUE);
    for (int i = 0; i < 3; ++i)
        sink.trace("f.cpp", 1, 20, "%s", "lost");
    std::filesystem::remove(folder.HostPath("ard.log"));
    EXPECT_TRUE(Recorded("back", 20));
    const std::string log = Log();
    EXPECT_TRUE(std::regex_search(log, std::regex("^[0-9]+ traces could not be written\r\n.*back\r\n"))) << log;
    EXPECT_GE(std::stoi(log), 3);
}
