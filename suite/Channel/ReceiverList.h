// The list in which the receivers of a broadcast channel register, from a receiver's side.
//
// There is no lock on it and every account may write to it. A slot is claimed by exchanging its first
// four bytes, so of two receivers of this kind only one gets it; for all others, each looks again
// whether its name is still there.
#pragma once

#include "ARDCommon/NotifyFormat.h"
#include "suite/Channel/SharedObjects.h"

#include <optional>
#include <string>
#include <vector>

namespace vlt::suite
{

class ReceiverList
{
public:
    struct Entry {
        unsigned slot; // from 1
        std::string name;
        bool live; // its section exists
    };

    // Opens the list, or makes it when the sender has not yet. Throws std::runtime_error.
    static ReceiverList Share(const char* channel);
    // None when there is no list. Throws std::runtime_error.
    static std::optional<ReceiverList> Open(const char* channel);

    // Writes a name of at least four characters into the first free slot; into one whose receiver has
    // gone when there is no free one. Its number from 1, or 0 when all are taken by living receivers.
    unsigned Register(const std::string& name);

    // Whether the sender comes across the name.
    bool Holds(const std::string& name) const;

    // Frees the slot if it is still the name's.
    void Unregister(const std::string& name) noexcept;

    // Every name in the list, up to its end.
    std::vector<Entry> Entries() const;

private:
    explicit ReceiverList(Section section) : m_section(std::move(section)) {}

    NotifyList& List() const { return *static_cast<NotifyList*>(m_section.Data()); }
    bool Claim(std::size_t slot, std::uint32_t expected, const std::string& name);

    Section m_section;
};

} // namespace vlt::suite
