#include "suite/Channel/NotifyReceiver.h"

#include "platform/Format.h"
#include "suite/Channel/Text.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <random>

namespace vlt::suite
{
namespace
{

constexpr DWORD SectionSize = 4096; // the sender does not look whether a message fits
// Only for a sender that does not pulse "sent" again when one was missed.
constexpr DWORD FirstPause = 16, LongestPause = 64;
// Sooner after a registration, when another receiver may have written into the slot at the same instant.
constexpr DWORD FirstLook = 10, LongestLook = 5000;

// A bounded number: somebody who takes every name that is tried must not keep us here.
constexpr int NameAttempts = 16;

} // namespace

NotifyReceiver::NotifyReceiver(const char* channel, const char* program)
    : m_channel(channel), m_program(program), m_copy(SectionSize - sizeof(NotifyMessage))
{
    MakeSection();
    Connect();
}

NotifyReceiver::~NotifyReceiver()
{
    if (m_list)
        m_list->Unregister(m_name);
}

// The name begins with what tells receivers apart, since that claims a slot, and says whose it is.
void NotifyReceiver::MakeSection()
{
    std::random_device random;
    for (int i = 0; i < NameAttempts; ++i) {
        m_name = Format("%08x_%s_%u", random(), m_program, GetCurrentProcessId());
        m_section = CreateSection(GlobalName(m_name), SectionSize);
        if (m_section && GetLastError() != ERROR_ALREADY_EXISTS)
            return;
        if (!m_section)
            FailWith(GetLastError(), m_name);
    }
    FailWith(ERROR_ALREADY_EXISTS, m_name);
}

// On failure everything is as before.
void NotifyReceiver::Connect()
{
    ReceiverList list = ReceiverList::Share(m_channel);
    KernelHandle notify = ShareEvent(ChannelName(m_channel, kNotifyEventSuffix), true);
    KernelHandle sent = ShareEvent(ChannelName(m_channel, kNotifySentSuffix), true);
    KernelHandle read = ShareEvent(ChannelName(m_channel, kNotifyReadSuffix), false);
    if (!list.Holds(m_name) && list.Register(m_name) == 0)
        throw std::runtime_error(
            Format("all %u slots for receivers are taken; vlctl receivers list shows by whom", kNotifySlotCount));
    m_list = std::move(list);
    m_notify = std::move(notify);
    m_sent = std::move(sent);
    m_read = std::move(read);
}

// When our message is taken and others' are not, the notify event stays set. The next message is then
// announced by "sent", and is seen a little later if that was missed.
void NotifyReceiver::Run(HANDLE stop, const Handler& handler)
{
    DWORD pause = FirstPause;
    DWORD look = FirstLook;
    bool idle = false;
    for (;;) {
        if (Take(handler))
            pause = FirstPause;
        else if (!StaysRegistered(idle))
            look = FirstLook;
        const bool sending = WaitForSingleObject(m_notify.Get(), 0) == WAIT_OBJECT_0;
        const HANDLE handles[] = {stop, sending ? m_sent.Get() : m_notify.Get()};
        const DWORD result = WaitForMultipleObjects(2, handles, FALSE, sending ? pause : look);
        if (result == WAIT_OBJECT_0)
            break;
        if (result == WAIT_FAILED)
            FailWith(GetLastError(), "wait for a message");
        const bool timedOut = result == WAIT_TIMEOUT;
        idle = timedOut && !sending;
        if (idle)
            look = std::min(2 * look, LongestLook);
        pause = timedOut && sending ? std::min(2 * pause, LongestPause) : FirstPause;
    }
    m_list->Unregister(m_name);
}

bool NotifyReceiver::Take(const Handler& handler)
{
    auto& message = *static_cast<NotifyMessage*>(m_section.Data());
    const std::atomic_ref<std::uint32_t> flag(message.readFlag);
    if (flag.load(std::memory_order_acquire) == 0)
        return false;
    const std::uint32_t size = std::atomic_ref<std::uint32_t>(message.size).load(std::memory_order_relaxed);
    const std::size_t length = std::min<std::size_t>(size, m_copy.size());
    std::memcpy(m_copy.data(), &message + 1, length);
    flag.store(0, std::memory_order_release);
    SetEvent(m_read.Get());
    handler(std::span(m_copy.data(), length), size);
    return true;
}

// False when it had to register anew, or could not. Every wake-up looks at the list that is held;
// `byName` looks whether its name still leads to it.
bool NotifyReceiver::StaysRegistered(bool byName) noexcept
{
    try {
        if (byName ? ReceiverList::Share(m_channel).Holds(m_name) : m_list->Holds(m_name))
            return true;
        m_list->Unregister(m_name); // it may stand where the sender does not come across it
        Connect();
        m_warned = false;
    } catch (const std::exception& error) {
        if (!m_warned)
            std::fprintf(stderr, "%s: not registered any more: %s\n", m_program, error.what());
        m_warned = true;
    }
    return false;
}

} // namespace vlt::suite
