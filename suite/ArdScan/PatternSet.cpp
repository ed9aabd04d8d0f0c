#include "suite/ArdScan/PatternSet.h"

#include <algorithm>
#include <cstring>

namespace vlt::scan
{
namespace
{

bool Reported(const Threat& threat, const ScanFilter& filter)
{
    switch (threat.kind) {
    case PatternKind::Spyware:
        return (threat.signature->spywareKind & filter.spywareMask) != 0;
    case PatternKind::Packer:
        return filter.packers;
    default:
        return true;
    }
}

} // namespace

std::size_t CPatternSet::HashOf::operator()(const std::array<std::uint8_t, 32>& hash) const
{
    std::size_t value;
    std::memcpy(&value, hash.data(), sizeof(value));
    return value;
}

CPatternSet::CPatternSet(PatternFiles files, std::uint32_t generation)
    : m_files(std::move(files)), m_generation(generation), m_matcher(Collect())
{
    for (const PatternFile* file : {m_files.virus.get(), m_files.spyware.get(), m_files.packer.get()}) {
        if (!file)
            continue;
        for (const HashPattern& hash : file->hashes) {
            const auto id = static_cast<std::uint32_t>(m_threats.size());
            m_threats.push_back({&hash, file->kind, id});
            m_hashes.emplace(hash.hash, std::pair(hash.size, id));
            if (hash.size == 0)
                m_hashAnySize = true;
            else
                ++m_hashSizes[hash.size];
            ++m_hashCount;
        }
    }
}

std::vector<const BytePattern*> CPatternSet::Collect()
{
    std::vector<const BytePattern*> patterns;
    for (const PatternFile* file : {m_files.virus.get(), m_files.spyware.get(), m_files.packer.get()}) {
        if (!file)
            continue;
        for (const BytePattern& pattern : file->patterns) {
            m_threats.push_back({&pattern, file->kind, m_patternCount++});
            patterns.push_back(&pattern);
        }
    }
    return patterns;
}

const Threat* CPatternSet::FindHash(const std::array<std::uint8_t, 32>& hash, std::uint64_t size) const
{
    const auto [begin, end] = m_hashes.equal_range(hash);
    for (auto entry = begin; entry != end; ++entry)
        if (entry->second.first == 0 || entry->second.first == size)
            return &m_threats[entry->second.second];
    return nullptr;
}

CScanner::CScanner() : m_buffer(BlockSize) {}

ScanResult CScanner::Scan(const CPatternSet& set, const ScanFilter& filter, std::uint64_t size,
                          const ReadFunction& read)
{
    ScanResult result;
    result.outcome = Walk(set, size, read, [&](const Threat& threat, std::uint64_t, std::uint64_t) {
        if (!Reported(threat, filter))
            return false;
        result.threat = threat;
        return true;
    });
    return result;
}

ScanOutcome CScanner::FindAll(const CPatternSet& set, const ScanFilter& filter, std::uint64_t size,
                              const ReadFunction& read, const FoundFunction& found)
{
    bool any = false;
    const ScanOutcome outcome =
        Walk(set, size, read, [&](const Threat& threat, std::uint64_t offset, std::uint64_t length) {
            if (!Reported(threat, filter))
                return false;
            any = true;
            return found(threat, offset, length);
        });
    return any && outcome == ScanOutcome::Clean ? ScanOutcome::Infected : outcome;
}

// hit(threat, offset, length) returns true to end the walk, which then is Infected. A pattern that is made to crash the
// engine does it here, as one that the engine cannot bear would.
template <typename Hit>
ScanOutcome CScanner::Walk(const CPatternSet& set, std::uint64_t size, const ReadFunction& read, Hit&& hit)
{
    const auto found = [&](const Threat& threat, std::uint64_t offset, std::uint64_t length) {
        if (threat.signature->flags & SignatureCrash)
            __builtin_trap();
        return hit(threat, offset, length);
    };
    const CMatcher& matcher = set.Matcher();
    const std::size_t margin = matcher.MaxLength();
    if (m_buffer.size() < BlockSize + 2 * margin)
        m_buffer.resize(BlockSize + 2 * margin);
    const bool hashing = set.HashesSize(size);
    if (hashing)
        m_hash.Begin();

    // The buffer holds `margin` searched bytes, then bytes still to be searched; the search stays
    // `margin` bytes behind the end of what was read, so a pattern across two blocks lies in it whole.
    CMatcher::State state;
    std::size_t searched = 0, filled = 0;
    std::uint64_t total = 0;
    const auto matched = [&](std::uint32_t pattern, std::size_t start) {
        const Threat& threat = set.PatternThreat(pattern);
        return found(threat, total - filled + start, static_cast<const BytePattern*>(threat.signature)->value.size());
    };
    for (;;) {
        const std::ptrdiff_t count = read(std::span(m_buffer).subspan(filled, m_buffer.size() - filled));
        if (count < 0)
            return ScanOutcome::Failed;
        const auto bytes = static_cast<std::size_t>(count);
        if (hashing)
            m_hash.Add(std::span(m_buffer).subspan(filled, bytes));
        filled += bytes;
        total += bytes;
        // A short file is whole after one read; the size is only a hint and a read of 0 is the end.
        const bool atEnd = bytes == 0;
        const std::size_t to = atEnd ? filled : std::max(searched, filled - std::min(filled, margin));
        const std::span<const std::uint8_t> window(m_buffer.data(), filled);
        if (!matcher.Empty() && matcher.Search(window, searched, to, state, matched))
            return ScanOutcome::Infected;
        searched = to;
        if (atEnd)
            break;
        if (searched > margin) {
            const std::size_t drop = searched - margin;
            std::memmove(m_buffer.data(), m_buffer.data() + drop, filled - drop);
            searched -= drop;
            filled -= drop;
        }
    }
    if (hashing) {
        const auto hash = m_hash.Finish();
        if (!hash)
            return ScanOutcome::Failed;
        const Threat* threat = set.FindHash(*hash, total);
        if (threat && found(*threat, 0, total))
            return ScanOutcome::Infected;
    }
    return ScanOutcome::Clean;
}

} // namespace vlt::scan
