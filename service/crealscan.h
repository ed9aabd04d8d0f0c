// The real-time scan service.
#pragma once

#include "ARDCommon/ReceivePidExceptionList.h"
#include "service/CService.h"

class CRealScan : public CService
{
public:
    // Becomes the process's service.
    CRealScan(LPCWSTR serviceName, LPCWSTR displayName, DWORD serviceType);
    ~CRealScan() override;

    bool Init() override;
    void DeInit() override;
    void OnPause() override;
    void OnContinue() override;
    void OnShutdown() override;
    void Run() override;
    void OnStop() override;

private:
    void CreateEvents();
    bool StartPidExceptionList();
    void RequestStop();
    void Acknowledge(DWORD pendingState, DWORD state);

    vlt::KernelHandle m_acknowledgeEvent; // waited for by OnPause and OnContinue; nothing here signals it
    vlt::KernelHandle m_stopEvent;
    volatile LONG m_pauseFlag = 0; // written only
    volatile LONG m_stopFlag = 0;  // a stop was requested
    CReceivePidExceptionList m_pidExceptionList;
    vlt::LocalMem m_descriptor; // kept for the life of the service though nothing uses it
};
