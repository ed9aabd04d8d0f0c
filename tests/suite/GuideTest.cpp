// ardguide.exe: what it shows, and its restart in the sessions of the machine.
#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/NotifySender.h"
#include "ARDCommon/TrayRestart.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <set>

#ifndef _WIN32
#include "tests/support/posix/FakeSession.h"
#endif

using namespace vlt::test;
namespace fs = std::filesystem;

namespace
{

constexpr unsigned kSoon = 30000; // a limit, not an expectation
const std::string kGreeting = "[Ardentis] notifications of the scanner appear here";

std::set<DWORD> Running(LPCWSTR program)
{
    std::set<DWORD> ids;
    const vlt::FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        if (lstrcmpiW(entry.szExeFile, program) == 0)
            ids.insert(entry.th32ProcessID);
    }
    return ids;
}

std::set<DWORD> Guides()
{
    return Running(TEXT("ardguide.exe"));
}

// A program folder in which this program is the service.
class Folder
{
public:
    Folder()
    {
        const fs::path host = m_folder.HostPath();
        fs::permissions(std::getenv("VLT_ROOT") ? fs::path(std::getenv("VLT_ROOT")) : host, fs::perms(0755));
        fs::copy_file(ProductFolder() / "ardguide.exe", host / "ardguide.exe");
        fs::copy_file(ProgramFolder() / kOwnName, host / kOwnName);
#ifndef _WIN32
        fs::copy_file(ProductFolder() / "libvlplatform.so", host / "libvlplatform.so");
#endif
    }
    int Restart() const
    {
        return Child::Program(m_folder.HostPath(kOwnName),
                              {"--vlt-child", "restart", std::to_string(GetCurrentProcessId())},
                              {{"LD_LIBRARY_PATH", ProductFolder().string()}})
            .Wait(kSoon);
    }

private:
    static constexpr const char* kOwnName = VLT_OWN_NAME;
    TempFolder m_folder;
};

} // namespace

VLT_CHILD(restart)
{
    RestartOnAllSessions();
    return 0;
}

TEST(Guide, ShowsADetectionOfTheSender)
{
    CNotifySender sender(kVirusFoundChannel, sizeof(AsDetectionRecord));
    Child guide = Child::Program(ProductFolder() / "ardguide.exe");
    ASSERT_EQ(guide.ReadLine(), kGreeting);
    AsDetectionRecord record{};
    vlt::CopyToField(record.threatName, WStringView(TEXT("Test\x1b[2J")));
    vlt::CopyToField(record.infectedPath, WStringView(TEXT("C:\\a.zip")));
    vlt::CopyToField(record.secondPath, WStringView(TEXT("b.com")));
    record.firstAction = AS_ACTION_CLEAN;
    record.firstResult = AS_RESULT_FAILED;
    record.secondAction = AS_ACTION_DENY;
    record.secondResult = AS_RESULT_DONE;
    ASSERT_TRUE(sender.Notify(&record, sizeof record));
    const std::string first = guide.ReadLine();
    EXPECT_TRUE(first.starts_with("[Ardentis] ") && first.ends_with("  Threat found: Test\\u001b[2J")) << first;
    EXPECT_EQ(guide.ReadLine(), "           file    C:\\a.zip");
    EXPECT_EQ(guide.ReadLine(), "           inside  b.com");
    EXPECT_EQ(guide.ReadLine(), "           action  clean failed, deny done");
    guide.Kill();
    guide.Wait(kSoon);
    EXPECT_TRUE(sender.Notify(&record, sizeof record)); // and it is not waited for
    sender.Stop();
}

#ifdef _WIN32
TEST(Guide, IsStartedAnewInTheSessionOfTheDesktop)
{
    // The shell of Wine ends with the last program on the desktop and is back for the next one.
    GetDesktopWindow();
    ASSERT_TRUE(Eventually(kSoon, [] { return !Running(TEXT("explorer.exe")).empty(); }));
    const Folder folder;
    ASSERT_EQ(folder.Restart(), 0);
    const std::set<DWORD> first = Guides();
    EXPECT_EQ(first.size(), 1u);
    ASSERT_EQ(folder.Restart(), 0);
    const std::set<DWORD> second = Guides();
    EXPECT_EQ(second.size(), 1u);
    EXPECT_NE(first, second);
    for (const DWORD id : second) {
        const vlt::KernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
        EXPECT_TRUE(TerminateProcess(process.Get(), 0));
        WaitForSingleObject(process.Get(), kSoon);
    }
}
#else
// Among processes of their own, since a restart reaches every login of the machine.
TEST(Guide, IsStartedAnewInEveryLoginAndEndsWithIt)
{
    if (RanAmongOwnProcesses())
        return;
    const Folder folder;
    {
        FakeSession one, two;
        ASSERT_TRUE(one.Works() && two.Works());
        ASSERT_EQ(folder.Restart(), 0);
        EXPECT_TRUE(one.Shows(kGreeting) && two.Shows(kGreeting));
        const std::set<DWORD> first = Guides();
        EXPECT_EQ(first.size(), 2u);
        ASSERT_EQ(folder.Restart(), 0);
        EXPECT_TRUE(one.Shows(kGreeting + "\r\n" + kGreeting));
        const std::set<DWORD> second = Guides();
        EXPECT_EQ(second.size(), 2u);
        for (const DWORD id : second) {
            EXPECT_FALSE(first.contains(id));
            DWORD session = 0;
            EXPECT_TRUE(ProcessIdToSessionId(id, &session));
            EXPECT_TRUE(session == one.Number() || session == two.Number()) << session;
        }
    }
    EXPECT_TRUE(Eventually(kSoon, [] { return Guides().empty(); }));
}
#endif
