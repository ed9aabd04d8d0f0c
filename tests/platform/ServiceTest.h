// A service that the tests install, start and kill: this test program, run again as a child body
// without a parent.
#pragma once

#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/platform/Fails.h"
#include "tests/support/Bodies.h"
#include "tests/support/Support.h"

namespace vlt::test
{

inline WString ProgramCommand(const char* body, const std::string& more = {})
{
    WCHAR program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return TEXT('"') + WString(program) + TEXT("\" ") + ToWide(std::string(kChildSwitch) + ' ' + body + " 0 " + more);
}

// Installs a service of the running test's name; stops and removes it at the end.
class ServiceTest : public testing::Test
{
protected:
    ServiceTest() : m_manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE))
    {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        m_name = TEXT("VltTest") + ToWide(test.name());
        if (const ServiceHandle old = Open(DELETE))
            DeleteService(old.Get());
    }
    ~ServiceTest() override
    {
        if (!m_service)
            return;
        SERVICE_STATUS status;
        ControlService(m_service.Get(), SERVICE_CONTROL_STOP, &status);
        Eventually(20000, [&] { return State() == SERVICE_STOPPED; });
        DeleteService(m_service.Get());
    }

    void Install(const WString& command)
    {
        m_service = ServiceHandle(CreateServiceW(m_manager.Get(), m_name.c_str(), TEXT("A test"), SERVICE_ALL_ACCESS,
                                                 SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                                 command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        ASSERT_TRUE(m_service) << GetLastError();
    }

    // ERROR_SUCCESS or the last error.
    DWORD Start(std::vector<const WCHAR*> arguments = {})
    {
        return StartServiceW(m_service.Get(), static_cast<DWORD>(arguments.size()), arguments.data()) ? ERROR_SUCCESS
                                                                                                      : GetLastError();
    }
    DWORD Control(DWORD control)
    {
        return ControlService(m_service.Get(), control, &m_status) ? ERROR_SUCCESS : GetLastError();
    }
    SERVICE_STATUS_PROCESS Query() const
    {
        SERVICE_STATUS_PROCESS status{};
        DWORD needed = 0;
        EXPECT_TRUE(QueryServiceStatusEx(m_service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                         sizeof(status), &needed));
        return status;
    }
    DWORD State() const { return Query().dwCurrentState; }
    bool Reaches(DWORD state)
    {
        return Eventually(20000, [&] { return State() == state; });
    }

    ServiceHandle Open(DWORD access) const
    {
        return ServiceHandle(OpenServiceW(m_manager.Get(), m_name.c_str(), access));
    }

    ServiceHandle m_manager;
    ServiceHandle m_service;
    WString m_name;
    SERVICE_STATUS m_status{};
};

} // namespace vlt::test
