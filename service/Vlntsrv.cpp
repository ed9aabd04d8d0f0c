// The program: "-install" and "-remove" manage the service's registration, anything else runs it.
#include "ARDCommon/EventLog.h"
#include "platform/win32.h"
#include "service/crealscan.h"
#include "service/ServiceInstall.h"

#include <memory>

namespace
{

constexpr DWORD kServiceType = SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS;

std::unique_ptr<CRealScan> g_realScan;

void RunService()
{
    g_realScan = std::make_unique<CRealScan>(vlt::kServiceName, vlt::kServiceDisplayName, kServiceType);
    // An own-process service is matched by its process: the name in the table is not the service's.
    WCHAR tableName[] = TEXT("RealScan");
    const SERVICE_TABLE_ENTRYW table[] = {{tableName, &CService::ServiceMain}, {nullptr, nullptr}};
    StartServiceCtrlDispatcherW(table); // fails at once when started by hand; the program then just ends
    g_realScan->WaitForServiceMain();
    g_realScan.reset();
}

} // namespace

extern "C" int wmain(int, WCHAR**)
{
    // The raw line, lower-cased in place, in which the switches are looked for anywhere.
    const LPWSTR line = GetCommandLineW();
    CharLowerBuffW(line, static_cast<DWORD>(lstrlenW(line)));
    const WStringView arguments(line);
    if (arguments.find(TEXT("-install")) != WStringView::npos)
        InstallService(vlt::kServiceName, vlt::kServiceDisplayName, kServiceType, SERVICE_AUTO_START, nullptr, nullptr,
                       nullptr);
    else if (arguments.find(TEXT("-remove")) != WStringView::npos)
        RemoveService(vlt::kServiceName, false);
    else
        RunService();
    return 0;
}
