#include "suite/Channel/ReceiverList.h"

#include "platform/Text.h"
#include "suite/Channel/Text.h"

#include <atomic>
#include <cstring>

namespace vlt::suite
{
namespace
{

constexpr std::size_t WordSize = sizeof(std::uint32_t);
static_assert(kNotifySlotSize % WordSize == 0); // every slot begins at a word

std::uint32_t FirstWord(std::string_view text)
{
    std::uint32_t word = 0;
    std::memcpy(&word, text.data(), WordSize);
    return word;
}

bool Exchange(char* slot, std::uint32_t expected, std::uint32_t desired)
{
    return std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(slot))
        .compare_exchange_strong(expected, desired);
}

// A slot as it was at one moment.
struct Copy {
    explicit Copy(const char (&slot)[kNotifySlotSize]) { std::memcpy(bytes, slot, sizeof bytes); }
    std::string_view Text() const { return FieldText(bytes); }
    bool EndsList() const { return bytes[0] == 0; }
    bool IsFree() const { return EndsList() || Text() == kNotifyFreeSlot; }
    std::uint32_t Word() const { return FirstWord({bytes, WordSize}); }

    char bytes[kNotifySlotSize];
};

// As the sender sees it: what it cannot open has gone. What others have closed to us may be open to it.
bool IsLive(std::string_view name)
{
    const KernelHandle mapping(OpenFileMappingW(FILE_MAP_READ, FALSE, GlobalName(name).c_str()));
    return mapping || GetLastError() == ERROR_ACCESS_DENIED;
}

} // namespace

ReceiverList ReceiverList::Share(const char* channel)
{
    const WString name = ChannelName(channel, kNotifyListSuffix);
    Section section = CreateSection(name, sizeof(NotifyList));
    if (!section)
        FailWith(GetLastError(), Printable(name));
    return ReceiverList(std::move(section));
}

std::optional<ReceiverList> ReceiverList::Open(const char* channel)
{
    const WString name = ChannelName(channel, kNotifyListSuffix);
    Section section = OpenSection(name, sizeof(NotifyList));
    if (section)
        return ReceiverList(std::move(section));
    if (GetLastError() != ERROR_FILE_NOT_FOUND)
        FailWith(GetLastError(), Printable(name));
    return std::nullopt;
}

unsigned ReceiverList::Register(const std::string& name)
{
    for (const bool free : {true, false}) {
        for (std::size_t i = 0; i < kNotifySlotCount; ++i) {
            const Copy copy(List().slot[i]);
            if ((free ? copy.IsFree() : !IsLive(copy.Text())) && Claim(i, copy.Word(), name))
                return static_cast<unsigned>(i + 1);
        }
    }
    return 0;
}

// The first word comes first: a claim that fails has written nothing into another's slot. Until the
// rest has followed the sender sees a name that does not exist and may free the slot again; that, like
// a receiver that claims in another way, is seen by looking again.
bool ReceiverList::Claim(std::size_t slot, std::uint32_t expected, const std::string& name)
{
    char* const target = List().slot[slot];
    if (!Exchange(target, expected, FirstWord(name)))
        return false;
    std::memcpy(target + WordSize, name.c_str() + WordSize, name.size() + 1 - WordSize);
    Exchange(target, FirstWord(name), FirstWord(name)); // the copy is not to be taken before the name is out
    return Copy(List().slot[slot]).Text() == name;
}

bool ReceiverList::Holds(const std::string& name) const
{
    for (const auto& slot : List().slot) {
        const Copy copy(slot);
        if (copy.EndsList())
            return false;
        if (copy.Text() == name)
            return true;
    }
    return false;
}

void ReceiverList::Unregister(const std::string& name) noexcept
{
    for (auto& slot : List().slot) {
        if (Copy(slot).Text() == name && Exchange(slot, FirstWord(name), FirstWord(kNotifyFreeSlot)))
            std::memcpy(slot + WordSize, kNotifyFreeSlot + WordSize, sizeof kNotifyFreeSlot - WordSize);
    }
}

std::vector<ReceiverList::Entry> ReceiverList::Entries() const
{
    std::vector<Entry> entries;
    for (std::size_t i = 0; i < kNotifySlotCount; ++i) {
        const Copy copy(List().slot[i]);
        if (copy.EndsList())
            break;
        if (!copy.IsFree())
            entries.push_back({static_cast<unsigned>(i + 1), std::string(copy.Text()), IsLive(copy.Text())});
    }
    return entries;
}

} // namespace vlt::suite
