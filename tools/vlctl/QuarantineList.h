// What the quarantine store holds, as read at one time, and the short names that users call it by.
#pragma once

#include "tools/vlctl/QuarantineStore.h"

#include <vector>

namespace vlt::ctl
{

struct QuarantineEntry {
    WString name; // of the kept file; what the record says, which need not be a file name
    WString source;
    WString date;
    WString threat;
    std::uint32_t platform = 0, type = 0, status = 0, patternVersion = 0;
    double engineVersion = 0;
    bool terminated = true; // false when a text fills its field, as no store writes it
    std::uint64_t id = 0;   // a hash of the name: records of the same name have the same
};

class QuarantineList
{
public:
    // Reads the records of quarantined files.
    explicit QuarantineList(const QuarantineStore& store);

    const std::vector<QuarantineEntry>& Entries() const noexcept { return m_entries; }
    const TornTail& Tail() const noexcept { return m_tail; }

    // As many hexadecimal digits of the id as tell it from the others, seven at least.
    std::string ShortId(const QuarantineEntry& entry) const;

    // The entries of the one name that is meant by a beginning of its id, or by the name itself. Throws
    // CommandError when there is none, or when it could be several.
    std::vector<const QuarantineEntry*> Find(const std::string& text) const;

private:
    std::vector<QuarantineEntry> m_entries; // in the order of the file
    std::vector<std::uint64_t> m_ids;       // sorted, each once
    TornTail m_tail;
};

} // namespace vlt::ctl
