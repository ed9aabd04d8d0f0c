// The listening end of a request channel from other programs (IpcFormat.h).
//
// A thread of the receiver waits for the request event, maps the requester's section read-only, hands
// it to OnReceive, and acknowledges. Requests that come while one is served are one wake-up. A request
// without a section ends the thread for good; one that cannot be mapped is acknowledged and not served.
// Failures end the thread with one trace line.
//
// SetName, Start and Stop are for one thread.
#pragma once

#include "ARDCommon/VlCriticalSection.h"
#include "platform/Unique.h"
#include "platform/win32.h"

#include <string>

class CIpcReceiver
{
public:
    // The least that OnReceive may read: a view has whole pages.
    static constexpr std::size_t kMinimumView = 4096;

    CIpcReceiver() = default;
    CIpcReceiver(const CIpcReceiver&) = delete;
    CIpcReceiver& operator=(const CIpcReceiver&) = delete;
    // Stops. A subclass stops in its own destructor already: its OnReceive is gone by now.
    virtual ~CIpcReceiver();

    // Called on the receiver's thread. The requester may change the bytes at any time: copy, then look.
    virtual void OnReceive(const void* view) = 0;

    // The channel's base name, once before Start. May throw std::bad_alloc.
    void SetName(const char* base);

    // False when the thread cannot be started, or was before. Waits about a second for it to listen;
    // true even when it does not by then, or has failed.
    bool Start();

    // Ends the thread and waits for it without limit. A request that is there already is served first.
    void Stop();

private:
    static unsigned __stdcall ThreadProc(void* self);
    void Listen();
    void Serve(HANDLE request, HANDLE stop);
    bool Receive(HANDLE request);

    vlt::KernelHandle m_stopEvent; // made and closed by the thread, with the lock held
    vlt::KernelHandle m_thread;
    vlt::KernelHandle m_settled; // manual-reset: set when the thread is listening or has failed to
    std::string m_requestName;
    std::string m_acknowledgeName;
    std::string m_sectionName;
    VlCriticalSection m_lock;
};
