// What the notify sender and its receivers share: the names and layouts of one broadcast channel.
//
// A channel has a base name B. All its objects are "Global\" ones, open to every account:
//
//   section  B_mem_notify_list   the receiver list, made by the sender (or by a receiver before it)
//   event    B_evt_notify        manual-reset: set while a message is to be read
//   event    B_evt_sent          manual-reset, never signalled: pulsed after each set of B_evt_notify, and
//                                again after each of the first milliseconds while someone has not read
//   event    B_evt_read          auto-reset: a receiver sets it after it has cleared its read flag
//   section  of each receiver, under a name of its own choice that it writes into a slot of the list
//
// One message: the sender writes it into every receiver's section, read flag last; sets B_evt_notify;
// waits until every read flag is 0 or its section has gone; resets B_evt_notify.
//
// The events "sent" and "read" only save time, so neither side relies on them. A receiver that has
// taken its message while others have not finds B_evt_notify still set; waiting for "sent" instead it
// sleeps until the next message. "read" lets the sender look at once; without it, it looks after 1 ms
// and then every 100 ms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr char kNotifyListSuffix[] = "_mem_notify_list";
inline constexpr char kNotifyEventSuffix[] = "_evt_notify";
inline constexpr char kNotifySentSuffix[] = "_evt_sent";
inline constexpr char kNotifyReadSuffix[] = "_evt_read";

// The channel on which the service broadcasts each detection; the payload is an AsDetectionRecord.
inline constexpr char kVirusFoundChannel[] = "Event_RTScan_VirusFound";

// A slot is a NUL-terminated name in the 8-bit code page. An empty one ends the list; "empty" is a free
// slot inside it. There is no lock on the list: a receiver writes its name and looks again whether it
// is still there.
inline constexpr std::size_t kNotifySlotSize = 260;
inline constexpr std::size_t kNotifySlotCount = 32;
inline constexpr char kNotifyFreeSlot[] = "empty";

struct NotifyList {
    char slot[kNotifySlotCount][kNotifySlotSize];
};
static_assert(sizeof(NotifyList) == 8320 && std::is_trivially_copyable_v<NotifyList>);

// The start of a receiver's section; `size` bytes of payload follow it at once.
struct NotifyMessage {
    std::uint32_t readFlag; // 1 by the sender when the message is whole; 0 by the receiver when it has it
    std::uint32_t size;     // of the payload in bytes
};
static_assert(sizeof(NotifyMessage) == 8);
static_assert(offsetof(NotifyMessage, readFlag) == 0 && offsetof(NotifyMessage, size) == 4);
static_assert(std::is_standard_layout_v<NotifyMessage> && std::is_trivially_copyable_v<NotifyMessage>);
