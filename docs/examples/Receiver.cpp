// receiver [COUNT]: shows detections of the service as they happen, until COUNT came (default: for ever).
//
// The least that a program needs that wants to hear of detections. It makes a section of its own, writes the
// section's name into a free slot of the list, and sleeps until the service says that there is a message.
// The channel is described in ARDCommon/NotifyFormat.h.
#include "ARDCommon/NotifyFormat.h"
#include "docs/examples/OpenToEveryone.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{

constexpr DWORD kSectionSize = 4096; // a page: the service writes into whatever is there
constexpr DWORD kLookAgain = 1000;   // ms

struct Message {
    NotifyMessage header;
    AsDetectionRecord detection;
};

template <typename T>
struct Section {
    Section(const std::string& name, DWORD size)
    {
        OpenToEveryone security;
        mapping.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, security.Get(), PAGE_READWRITE, 0, size,
                                         vlt::ToWide(name).c_str()));
        if (mapping)
            view.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
    }
    T* Get() const { return static_cast<T*>(view.Get()); }

    vlt::KernelHandle mapping;
    vlt::MappedView view;
};

std::string ChannelObject(const char* suffix)
{
    return std::string("Global\\") + kVirusFoundChannel + suffix;
}

bool IsIn(const NotifyList& list, const std::string& name)
{
    for (const auto& slot : list.slot) {
        if (slot[0] == 0)
            return false;
        if (std::strncmp(slot, name.c_str(), kNotifySlotSize) == 0)
            return true;
    }
    return false;
}

// Nobody locks the list: two programs may write into one slot, and the one that lost it tries again.
bool Register(NotifyList& list, const std::string& name)
{
    for (auto& slot : list.slot) {
        if (slot[0] != 0 && std::strncmp(slot, kNotifyFreeSlot, kNotifySlotSize) != 0)
            continue;
        std::memcpy(slot, name.c_str(), name.size() + 1);
        return true;
    }
    return false;
}

// The flag comes last, and is given back as soon as the message is copied: the service and all other
// receivers wait for it.
bool Take(Message& shared, AsDetectionRecord& detection)
{
    const std::atomic_ref<std::uint32_t> flag(shared.header.readFlag);
    if (flag.load(std::memory_order_acquire) == 0)
        return false;
    std::memcpy(&detection, &shared.detection, sizeof detection);
    flag.store(0, std::memory_order_release);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    int left = argc > 1 ? std::atoi(argv[1]) : -1;
    const std::string name = "example_receiver_" + std::to_string(GetCurrentProcessId());
    const Section<Message> own("Global\\" + name, kSectionSize);
    const Section<NotifyList> list(ChannelObject(kNotifyListSuffix), sizeof(NotifyList));
    OpenToEveryone security;
    const vlt::KernelHandle notify(
        CreateEventW(security.Get(), TRUE, FALSE, vlt::ToWide(ChannelObject(kNotifyEventSuffix)).c_str()));
    if (own.Get() == nullptr || list.Get() == nullptr || !notify) {
        std::fprintf(stderr, "the channel cannot be opened (%u)\n", unsigned{GetLastError()});
        return 1;
    }
    while (left != 0) {
        AsDetectionRecord detection;
        if (Take(*own.Get(), detection)) {
            std::printf("%s in %s\n", vlt::ToNarrow(vlt::FieldText(detection.threatName), CP_UTF8).c_str(),
                        vlt::ToNarrow(vlt::FieldText(detection.infectedPath), CP_UTF8).c_str());
            std::fflush(stdout);
            --left;
        } else if (!IsIn(*list.Get(), name)) {
            if (!Register(*list.Get(), name))
                Sleep(kLookAgain); // all slots are taken
        } else if (WaitForSingleObject(notify.Get(), kLookAgain) == WAIT_OBJECT_0) {
            Sleep(1); // ours may be taken while others are still at it, and the event set
        }
    }
    for (auto& slot : list.Get()->slot) {
        if (std::strncmp(slot, name.c_str(), kNotifySlotSize) == 0)
            std::memcpy(slot, kNotifyFreeSlot, sizeof kNotifyFreeSlot);
    }
    return 0;
}
