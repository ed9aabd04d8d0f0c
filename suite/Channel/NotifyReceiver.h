// A receiver of a broadcast channel (see NotifyFormat.h).
//
// The sender waits for every receiver before it goes on, so a message is copied and given back before
// anything is done with it. Between messages a receiver sleeps; it looks at the list now and then,
// since anybody may write to it.
#pragma once

#include "ARDCommon/NotifyFormat.h"
#include "suite/Channel/ReceiverList.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vlt::suite
{

class NotifyReceiver
{
public:
    // Called on the thread of Run with the payload, cut at the size of the receiver's section, and its
    // size as the sender gave it. The copy is the handler's until it returns; it must not block.
    using Handler = std::function<void(std::span<const BYTE> payload, DWORD size)>;

    // Registers; the sender need not be there. Throws std::runtime_error: no slot is free, or the channel's
    // objects are not as they should be. The name of the channel and that of the program, which is part of
    // the section's name, must outlive the receiver.
    NotifyReceiver(const char* channel, const char* program);
    ~NotifyReceiver();
    NotifyReceiver(const NotifyReceiver&) = delete;
    NotifyReceiver& operator=(const NotifyReceiver&) = delete;

    // Takes messages until the event is set, then unregisters. Throws std::runtime_error when a wait fails.
    void Run(HANDLE stop, const Handler& handler);

private:
    void MakeSection();
    void Connect();
    bool Take(const Handler& handler);
    bool StaysRegistered(bool byName) noexcept;

    const char* const m_channel;
    const char* const m_program;
    std::string m_name;
    Section m_section;
    std::optional<ReceiverList> m_list;
    KernelHandle m_notify;
    KernelHandle m_sent;
    KernelHandle m_read;
    std::vector<BYTE> m_copy;
    bool m_warned = false; // that there is no slot any more
};

} // namespace vlt::suite
