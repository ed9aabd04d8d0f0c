// Service control and the event log. Services are kept in the machine root's services/ folder, the
// event log in eventlog/.
//
// A process is a service when VLT_SERVICE in its environment names an installed one: StartServiceW
// sets it, and so may a supervisor, whose readiness protocol (NOTIFY_SOCKET) is spoken. SIGTERM and
// SIGINT are a stop control, SIGPWR a shutdown control; one that comes before the handler is
// registered is delivered when it is. VLT_SERVICE_TRACE names a file to which every status report is appended as
// one line: the seven fields in decimal.
#pragma once

#include "base.h"

using SC_HANDLE = struct VltScHandle*;
using SERVICE_STATUS_HANDLE = struct VltServiceStatusHandle*;

#define SERVICE_WIN32_OWN_PROCESS 0x10u
#define SERVICE_INTERACTIVE_PROCESS 0x100u
#define SERVICE_AUTO_START 2u
#define SERVICE_DEMAND_START 3u
#define SERVICE_DISABLED 4u
#define SERVICE_ERROR_NORMAL 1u

#define SERVICE_STOPPED 1u
#define SERVICE_START_PENDING 2u
#define SERVICE_STOP_PENDING 3u
#define SERVICE_RUNNING 4u
#define SERVICE_CONTINUE_PENDING 5u
#define SERVICE_PAUSE_PENDING 6u
#define SERVICE_PAUSED 7u

#define SERVICE_ACCEPT_STOP 1u
#define SERVICE_ACCEPT_PAUSE_CONTINUE 2u
#define SERVICE_ACCEPT_SHUTDOWN 4u

#define SERVICE_CONTROL_STOP 1u
#define SERVICE_CONTROL_PAUSE 2u
#define SERVICE_CONTROL_CONTINUE 3u
#define SERVICE_CONTROL_INTERROGATE 4u
#define SERVICE_CONTROL_SHUTDOWN 5u

#define SC_MANAGER_CONNECT 0x1u
#define SC_MANAGER_CREATE_SERVICE 0x2u
#define SC_MANAGER_ALL_ACCESS 0xF003Fu
#define SERVICE_QUERY_CONFIG 0x1u
#define SERVICE_CHANGE_CONFIG 0x2u
#define SERVICE_QUERY_STATUS 0x4u
#define SERVICE_START 0x10u
#define SERVICE_STOP 0x20u
#define SERVICE_PAUSE_CONTINUE 0x40u
#define SERVICE_INTERROGATE 0x80u
#define SERVICE_USER_DEFINED_CONTROL 0x100u
#define SERVICE_ALL_ACCESS 0xF01FFu

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;

struct SERVICE_STATUS_PROCESS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
    DWORD dwProcessId;
    DWORD dwServiceFlags;
};
enum SC_STATUS_TYPE { SC_STATUS_PROCESS_INFO = 0 };

struct QUERY_SERVICE_CONFIGW {
    DWORD dwServiceType;
    DWORD dwStartType;
    DWORD dwErrorControl;
    LPWSTR lpBinaryPathName;
    LPWSTR lpLoadOrderGroup;
    DWORD dwTagId;
    LPWSTR lpDependencies;
    LPWSTR lpServiceStartName;
    LPWSTR lpDisplayName;
};
using LPQUERY_SERVICE_CONFIGW = QUERY_SERVICE_CONFIGW*;

using LPSERVICE_MAIN_FUNCTIONW = void (*)(DWORD argc, LPWSTR* argv);
using LPHANDLER_FUNCTION = void (*)(DWORD control);
struct SERVICE_TABLE_ENTRYW {
    LPWSTR lpServiceName;
    LPSERVICE_MAIN_FUNCTIONW lpServiceProc;
};

VLT_API BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table);
VLT_API SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION handler);
VLT_API BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status);

VLT_API SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);
VLT_API SC_HANDLE CreateServiceW(SC_HANDLE manager, LPCWSTR name, LPCWSTR displayName, DWORD access, DWORD type,
                                 DWORD startType, DWORD errorControl, LPCWSTR path, LPCWSTR group, LPDWORD tag,
                                 LPCWSTR dependencies, LPCWSTR account, LPCWSTR password);
VLT_API SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);
VLT_API BOOL StartServiceW(SC_HANDLE service, DWORD argc, LPCWSTR* argv);
VLT_API BOOL ControlService(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status);
VLT_API BOOL QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE level, LPBYTE buffer, DWORD size, LPDWORD needed);
VLT_API BOOL QueryServiceConfigW(SC_HANDLE service, LPQUERY_SERVICE_CONFIGW config, DWORD size, LPDWORD needed);
VLT_API BOOL DeleteService(SC_HANDLE service);
VLT_API BOOL CloseServiceHandle(SC_HANDLE handle);

#define EVENTLOG_ERROR_TYPE 1
#define EVENTLOG_WARNING_TYPE 2
#define EVENTLOG_INFORMATION_TYPE 4
VLT_API HANDLE RegisterEventSourceW(LPCWSTR server, LPCWSTR source);
VLT_API BOOL ReportEventW(HANDLE log, WORD type, WORD category, DWORD eventId, PVOID userSid, WORD stringCount,
                          DWORD dataSize, LPCWSTR* strings, LPVOID data);
VLT_API BOOL DeregisterEventSource(HANDLE log);
