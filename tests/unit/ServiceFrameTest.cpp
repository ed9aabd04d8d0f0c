// The service frame without a service manager: what raises ends in the guard, and in DeInit.
#include "ARDCommon/EventLog.h"
#include "platform/Guard.h"
#include "platform/Unique.h"
#include "service/CService.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

namespace
{

class TestService : public CService
{
public:
    TestService() : CService(TEXT("VltFrameTest"), TEXT("Frame Test"), SERVICE_WIN32_OWN_PROCESS) { s_instance = this; }
    ~TestService() override { s_instance = nullptr; }

    bool Init() override
    {
        calls += "Init ";
        return true;
    }
    void DeInit() override
    {
        calls += "DeInit ";
        CService::DeInit();
    }
    void Run() override { calls += "Run "; }
    void OnStop() override { calls += "OnStop "; }

    std::string calls;
};

struct Status {
    CService* service;
    DWORD state;
    DWORD checkpoint;
    DWORD waitHint;
};

void Report(void* context)
{
    const Status& status = *static_cast<Status*>(context);
    status.service->SetStatus(status.state, status.checkpoint, status.waitHint);
}

TEST(ServiceFrame, PendingStateNeedsACheckpointAndAHint)
{
    TestService service;
    for (const DWORD state : {SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_PAUSE_PENDING}) {
        for (const auto& [checkpoint, hint] : {std::pair<DWORD, DWORD>{0, 5000}, {1, 0}}) {
            Status status{&service, state, checkpoint, hint};
            DWORD code = 4711;
            EXPECT_EQ(VltGuardedCall(&Report, &status, &code), 0);
            EXPECT_EQ(code, 0u);
        }
    }
}

TEST(ServiceFrame, ErrorTextsEndLikeTheSystems)
{
    EXPECT_EQ(vlt::ErrorText(TEXT("100% %s"), 0), TEXT("100% %s"));
    const WString known = vlt::ErrorText(TEXT("CreateEvent"), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(known.starts_with(TEXT("CreateEvent failed: ")));
    EXPECT_TRUE(known.ends_with(TEXT("\r\n")));
    EXPECT_EQ(vlt::ErrorText(TEXT("CreateEvent"), 0xE0001234), TEXT("CreateEvent failed: Unknown error 3758101044"));
}

TEST(ServiceFrame, ServiceThatCannotRegisterIsTakenDown)
{
    TestService service;
    TestService::ServiceMain(0, nullptr);
    service.WaitForServiceMain();
    EXPECT_EQ(service.calls, "DeInit ");
}

} // namespace
