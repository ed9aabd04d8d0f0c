// Lets programs of a user's session have a process excluded from scanning, or scanned again: each
// request of the channel "realtime_exception_pid" is passed to the scan library as it came.
#pragma once

#include "ARDCommon/IpcReceiver.h"
#include "engine/ArdScanAbi.h"

class CReceivePidExceptionList : public CIpcReceiver
{
public:
    ~CReceivePidExceptionList() override;

    // False for a name that is null or empty.
    bool Create(const char* name);
    // The library and scan handle must outlive the thread; given before it is started.
    void SetLibrary(HMODULE module, AsHandle handle);
    bool Wait() { return Start(); }

    void OnReceive(const void* view) override;

    // The library's answer, 0 when it has no such entry point. Which values of `add` mean that the
    // process is added is for the library to say.
    std::int32_t AddExceptionProcessID(DWORD processId, LONG add);

private:
    HMODULE m_module = nullptr;
    AsHandle m_handle = nullptr;
};
