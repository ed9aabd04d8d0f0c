#include "tools/vlctl/IpcRequest.h"

#include "ARDCommon/IpcFormat.h"
#include "platform/Format.h"
#include "suite/Channel/Interrupt.h"
#include "suite/Channel/SharedObjects.h"
#include "tools/vlctl/Text.h"

#include <cstring>
#include <random>

namespace vlt::ctl
{

using namespace suite;

namespace
{

constexpr unsigned LongestRetry = 20; // milliseconds
constexpr DWORD AfterAnother = 20;

class Deadline
{
public:
    explicit Deadline(unsigned seconds) : m_end(GetTickCount64() + seconds * 1000ull) {}
    DWORD Left() const
    {
        const ULONGLONG now = GetTickCount64();
        return now < m_end ? static_cast<DWORD>(m_end - now) : 0;
    }

private:
    ULONGLONG m_end;
};

// Waits while the interrupt event is not set; ends the command when it is.
void Pause(DWORD milliseconds)
{
    if (WaitForSingleObject(InterruptEvent(), milliseconds) == WAIT_OBJECT_0)
        throw CommandError(ExitFailed, "interrupted", "nothing was asked of the service");
}

// The section has one name for all, so who makes it has the channel. A dead requester's goes with the
// last handle to it, which is the listener's while it works on the request.
Section TakeChannel(const WString& name, DWORD size, const Deadline& deadline)
{
    std::minstd_rand random(GetCurrentProcessId()); // two that wait do not wait in step
    for (bool waited = false;; waited = true) {
        Section section = CreateSection(name, size);
        const DWORD error = GetLastError();
        if (section && error != ERROR_ALREADY_EXISTS) {
            // The listener acknowledges a request after it has closed the section: an event made too
            // soon would take what is meant for a requester that has given up.
            if (waited)
                Pause(AfterAnother);
            return section;
        }
        // Too small for us, but there: another kind of requester.
        if (!section && error != ERROR_ACCESS_DENIED)
            FailWith(error, Printable(name));
        section = Section();
        if (deadline.Left() == 0) {
            if (error == ERROR_ACCESS_DENIED)
                FailWith(error, Printable(name));
            throw CommandError(ExitFailed, "another program's request has not ended in time",
                               "try again, with a longer --timeout");
        }
        Pause(1 + static_cast<DWORD>(random() % LongestRetry));
    }
}

} // namespace

void SendRequest(const char* channel, std::span<const BYTE> request, unsigned timeoutSeconds)
{
    const HANDLE interrupt = InterruptEvent();
    const Deadline deadline(timeoutSeconds);
    const WString eventName = ChannelName(channel, kIpcRequestSuffix);

    // Closed in the opposite order: the next requester may begin when the section has gone.
    const Section section =
        TakeChannel(ChannelName(channel, kIpcSectionSuffix), static_cast<DWORD>(request.size()), deadline);
    std::memcpy(section.Data(), request.data(), request.size());
    const KernelHandle acknowledged = ShareEvent(ChannelName(channel, kIpcAcknowledgeSuffix), true);
    ResetEvent(acknowledged.Get());
    const KernelHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName.c_str()));
    if (!event && GetLastError() == ERROR_FILE_NOT_FOUND)
        throw CommandError(ExitNoService, "the service does not listen",
                           "vlctl service start, or vlctl status if it runs");
    if (!event || !SetEvent(event.Get()))
        FailWith(GetLastError(), Printable(eventName));

    const HANDLE handles[] = {acknowledged.Get(), interrupt};
    const DWORD result = WaitForMultipleObjects(2, handles, FALSE, deadline.Left());
    if (result == WAIT_OBJECT_0)
        return;
    const DWORD error = GetLastError();
    // A listener that is woken and finds no section never listens again.
    ResetEvent(event.Get());
    if (result == WAIT_FAILED)
        FailWith(error, "wait for the acknowledgement");
    throw CommandError(ExitFailed,
                       result == WAIT_TIMEOUT ? Format("the service has not acknowledged in %u seconds", timeoutSeconds)
                                              : "interrupted",
                       "the service may still do it; to be sure, ask again, with a longer --timeout");
}

} // namespace vlt::ctl
