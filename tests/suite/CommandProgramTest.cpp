// ArdCmdCom.exe and VlProxy.exe, run as the suite runs them.
#include "platform/Text.h"
#include "platform/Unique.h"
#include "suite/ArdCmdCom/SecurityCentreFormat.h"
#include "suite/VlProxy/VlProxyFormat.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

using namespace vlt::test;

namespace
{

constexpr unsigned kSoon = 30000; // a limit, not an expectation

int Command(const char* argument)
{
    return Child::Program(ProductFolder() / "ArdCmdCom.exe", {argument}).Wait(kSoon);
}

DWORD State(LPCWSTR name)
{
    vlt::RegKey key;
    DWORD value = 99, size = sizeof value;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, vlt::securitycentre::kKey, 0, KEY_READ | KEY_WOW64_32KEY, key.Receive());
    RegQueryValueExW(key.Get(), name, nullptr, nullptr, reinterpret_cast<LPBYTE>(&value), &size);
    return value;
}

// The block as the service makes it, with what an earlier run may have left.
class Block
{
public:
    Block() { m_block = {1, {7, 7, 7, 7, 7}, 4711, 7}; }
    VlpxPidBlock& operator*() { return m_block; }
    VlpxPidBlock* operator->() { return &m_block; }

private:
    vlt::KernelHandle m_section{CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                   sizeof(VlpxPidBlock),
                                                   (TEXT("Global\\") + vlt::ToWide(kVlpxPidSection)).c_str())};
    vlt::MappedView m_view{MapViewOfFile(m_section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)};
    VlpxPidBlock& m_block = *static_cast<VlpxPidBlock*>(m_view.Get());
};

} // namespace

TEST(CommandProgram, KeepsWhatIsReportedToTheSecurityCentre)
{
    for (const bool on : {true, false}) {
        EXPECT_EQ(Command(on ? "/WSCAntiVirusOn" : "/WSCAntiVirusOff"), 0);
        EXPECT_EQ(Command(on ? "/WSCAntiSpywareOff" : "/WSCAntiSpywareOn"), 0);
        EXPECT_EQ(State(vlt::securitycentre::kAntiVirus), DWORD{on});
        EXPECT_EQ(State(vlt::securitycentre::kAntiSpyware), DWORD{!on});
    }
    EXPECT_EQ(Command("/WSCAntiVirus"), 64);
    EXPECT_EQ(State(vlt::securitycentre::kAntiVirus), 0u);
}

TEST(CommandProgram, NamesTheProxyWhileItRunsAndNeverLater)
{
    EXPECT_EQ(Command(kVlpxPidArgument), 2); // it never makes the block
    Block block;
    EXPECT_EQ(Command(kVlpxPidArgument), 1);
    EXPECT_EQ(block->status, 0u);

    Child proxy = Child::Program(ProductFolder() / "VlProxy.exe");
    ASSERT_EQ(proxy.ReadLine(), "VlProxy: running as process " + std::to_string(proxy.Id()));
    EXPECT_EQ(Command(kVlpxPidArgument), 0);
    EXPECT_EQ(block->status, kVlpxPidValid);
    EXPECT_EQ(block->processId, proxy.Id());
    EXPECT_EQ(block->reserved28, 0u);
    EXPECT_EQ(Child::Program(ProductFolder() / "VlProxy.exe").Wait(kSoon), 1);

    // Somebody keeps what the killed one leaves.
    const vlt::KernelHandle section(OpenFileMappingW(FILE_MAP_READ, FALSE, vlt::proxy::kInformationSection));
    const vlt::KernelHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, vlt::proxy::kRunningMutex));
    ASSERT_TRUE(section && mutex);
    proxy.Kill();
    proxy.Wait(kSoon);
    EXPECT_EQ(Command(kVlpxPidArgument), 1);
    EXPECT_EQ(block->status, 0u);
    EXPECT_EQ(block->processId, 0u);

    Child next = Child::Program(ProductFolder() / "VlProxy.exe");
    ASSERT_EQ(next.ReadLine(), "VlProxy: running as process " + std::to_string(next.Id()));
    EXPECT_EQ(Command(kVlpxPidArgument), 0);
    EXPECT_EQ(block->processId, next.Id());
}

TEST(CommandProgram, BelievesNoOtherProgramThatSaysItIsTheProxy)
{
    const vlt::KernelHandle mutex(CreateMutexW(nullptr, TRUE, vlt::proxy::kRunningMutex));
    const vlt::KernelHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                       sizeof(vlt::proxy::VlpxInformation),
                                                       vlt::proxy::kInformationSection));
    const vlt::MappedView view(MapViewOfFile(section.Get(), FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_TRUE(mutex && view);
    *static_cast<vlt::proxy::VlpxInformation*>(view.Get()) = {28, {}, GetCurrentProcessId(), 0};
    Block block;
    EXPECT_EQ(Command(kVlpxPidArgument), 1);
    EXPECT_EQ(block->status, 0u);
}
