// The examples of docs/ against each other and the real service.
#include "ARDCommon/NotifyFormat.h"
#include "tests/service/Installation.h"
#include "tests/unit/SharedSection.h"

using namespace vlt::test;

namespace
{

std::filesystem::path Example(const std::string& stem)
{
    const std::filesystem::path folder = ProductFolder().parent_path() / "examples";
    return folder / (stem + Installation::Built("vlntsrv").extension().string());
}

} // namespace

TEST(Examples, AReceiverHearsWhatTheEngineReportsAndAnUpdaterOfTheReload)
{
    const std::string engine = Example("ArdScan").replace_extension(".dll").string();
    Installation service({.scan = engine.c_str()});
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));

    Child receiver = Child::Program(Example("example_receiver"), {"1"});
    const SharedSection list(std::string("Global\\") + kVirusFoundChannel + kNotifyListSuffix, 1);
    ASSERT_TRUE(Eventually(20000, [&] { return list.NamesSection(0); }));
    std::filesystem::create_directory(service.File("Inbox"));
    WriteBytes(service.File("Inbox/some.bad"), "");
    EXPECT_EQ(receiver.ReadLine(), "Example.Bad in " + service.FolderText() + "Inbox\\some.bad");
    EXPECT_EQ(receiver.Wait(20000), 0);

    Child updater = Child::Program(Example("example_updater"), {"all"});
    EXPECT_EQ(updater.ReadLine(), "loaded");
    EXPECT_EQ(updater.Wait(40000), 0);
    ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
    ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
}
