#include "tools/vlctl/QuarantineList.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

namespace vlt::ctl
{
namespace
{

constexpr std::size_t IdDigits = 16;
constexpr std::size_t ShortDigits = 7;
constexpr std::size_t FewestDigits = 4; // that are taken as a beginning

// FNV-1a over the bytes of the units, mixed so that the first digits depend on all of them.
std::uint64_t HashOf(WStringView name)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const WCHAR unit : name) {
        hash = (hash ^ (unit & 0xFF)) * 0x100000001B3;
        hash = (hash ^ static_cast<unsigned>(unit >> 8)) * 0x100000001B3;
    }
    hash = (hash ^ (hash >> 33)) * 0xFF51AFD7ED558CCD;
    return hash ^ (hash >> 33);
}

template <std::size_t N>
WString Take(const WCHAR (&field)[N], bool& terminated)
{
    const WStringView text = FieldText(field);
    terminated = terminated && text.size() < N;
    return WString(text);
}

QuarantineEntry EntryOf(const QuarantineRecord& record)
{
    QuarantineEntry entry;
    entry.name = Take(record.quarantinedName, entry.terminated);
    entry.source = Take(record.sourceFolder, entry.terminated);
    entry.source += Take(record.sourceName, entry.terminated);
    entry.date = Take(record.date, entry.terminated);
    entry.threat = Take(record.threatName, entry.terminated);
    entry.platform = record.platform;
    entry.type = record.type;
    entry.status = record.status;
    entry.patternVersion = record.patternVersion;
    static_assert(sizeof record.engineVersion == sizeof entry.engineVersion);
    std::memcpy(&entry.engineVersion, record.engineVersion, sizeof entry.engineVersion);
    entry.id = HashOf(entry.name);
    return entry;
}

} // namespace

QuarantineList::QuarantineList(const QuarantineStore& store)
{
    m_tail = store.Read([&](const QuarantineRecord& record) {
        if (record.type >= kFirstQuarantinedType)
            m_entries.push_back(EntryOf(record));
    });
    m_ids.reserve(m_entries.size());
    for (const QuarantineEntry& entry : m_entries)
        m_ids.push_back(entry.id);
    std::sort(m_ids.begin(), m_ids.end());
    m_ids.erase(std::unique(m_ids.begin(), m_ids.end()), m_ids.end());
}

std::string QuarantineList::ShortId(const QuarantineEntry& entry) const
{
    const auto at = std::lower_bound(m_ids.begin(), m_ids.end(), entry.id);
    std::size_t digits = ShortDigits;
    const auto tellFrom = [&](std::uint64_t other) {
        const auto same = static_cast<std::size_t>(std::countl_zero(entry.id ^ other)) / 4;
        digits = std::max(digits, std::min(same + 1, IdDigits));
    };
    if (at != m_ids.begin())
        tellFrom(*(at - 1));
    if (at + 1 != m_ids.end())
        tellFrom(*(at + 1));
    return Format("%016llx", entry.id).substr(0, digits);
}

std::vector<const QuarantineEntry*> QuarantineList::Find(const std::string& text) const
{
    const WString name = FromUtf8(text);
    std::uint64_t first = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), first, 16);
    const bool isId = error == std::errc() && end == text.data() + text.size() && text.size() >= FewestDigits &&
                      text.size() <= IdDigits;
    const unsigned shift = isId ? static_cast<unsigned>((IdDigits - text.size()) * 4) : 0;

    std::vector<const QuarantineEntry*> named, begun;
    for (const QuarantineEntry& entry : m_entries) {
        if (entry.name == name)
            named.push_back(&entry);
        if (isId && entry.id >> shift == first)
            begun.push_back(&entry);
    }
    const auto& found = named.empty() ? begun : named;
    if (found.empty())
        throw CommandError(ExitNo, "nothing in quarantine is called " + Printable(name),
                           "vlctl quarantine list has the ids");
    for (const QuarantineEntry* const entry : found) {
        if (entry->name != found.front()->name)
            throw CommandError(
                ExitNo, Format("%s could be %s or %s", Printable(name), ShortId(*found.front()), ShortId(*entry)),
                "give more digits of the one that is meant");
    }
    return found;
}

} // namespace vlt::ctl
