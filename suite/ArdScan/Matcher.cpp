#include "suite/ArdScan/Matcher.h"

#include "suite/Common/PatternFile.h"

#include <algorithm>
#include <map>

namespace vlt::scan
{
namespace
{

struct AnchorRange {
    std::size_t begin = 0;
    std::size_t end = 0;
};

// The window of at most `limit` bytes in the longest literal run that has the most different bytes:
// runs of zeros or blanks are frequent in files and would cost a comparison each time.
AnchorRange ChooseAnchor(const BytePattern& pattern, std::size_t limit)
{
    AnchorRange run, best;
    for (std::size_t i = 0; i <= pattern.mask.size(); ++i) {
        if (i < pattern.mask.size() && pattern.mask[i] != 0)
            continue;
        if (i - run.begin > best.end - best.begin)
            best = {run.begin, i};
        run.begin = i + 1;
    }
    const std::size_t length = std::min(limit, best.end - best.begin);
    AnchorRange chosen{best.begin, best.begin + length};
    std::ptrdiff_t mostDifferent = -1;
    for (std::size_t start = best.begin; start + length <= best.end; ++start) {
        std::bitset<256> seen;
        for (std::size_t i = start; i < start + length; ++i)
            seen.set(pattern.value[i]);
        if (const auto count = static_cast<std::ptrdiff_t>(seen.count()); count > mostDifferent) {
            mostDifferent = count;
            chosen = {start, start + length};
        }
    }
    return chosen;
}

struct Node {
    std::map<std::uint8_t, std::uint32_t> edges;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> anchors;
    std::uint32_t fail = 0;
};

} // namespace

CMatcher::CMatcher(std::vector<const BytePattern*> patterns) : m_patterns(std::move(patterns))
{
    Build();
}

bool CMatcher::Matches(const BytePattern& pattern, std::span<const std::uint8_t> window, std::size_t start) const
{
    const std::size_t length = pattern.value.size();
    if (length > window.size() - start)
        return false;
    for (std::size_t i = 0; i < length; ++i)
        if ((window[start + i] ^ pattern.value[i]) & pattern.mask[i])
            return false;
    return true;
}

void CMatcher::Build()
{
    std::vector<AnchorRange> ranges;
    std::bitset<256> used;
    for (const BytePattern* pattern : m_patterns) {
        m_maxLength = std::max(m_maxLength, pattern->value.size());
        const AnchorRange range = ranges.emplace_back(ChooseAnchor(*pattern, MaxAnchor));
        for (std::size_t i = range.begin; i < range.end; ++i)
            used.set(pattern->value[i]);
        m_pairs.set(static_cast<std::size_t>(pattern->value[range.begin] << 8 | pattern->value[range.begin + 1]));
    }
    // Class 0 is every byte that is in no anchor, unless all of them are.
    std::size_t next = used.all() ? 0 : 1;
    for (std::size_t byte = 0; byte < 256; ++byte)
        m_class[byte] = used[byte] ? static_cast<std::uint8_t>(next++) : std::uint8_t{0};
    m_classes = std::max<std::size_t>(next, 1);

    std::vector<Node> trie(1);
    for (std::uint32_t p = 0; p < m_patterns.size(); ++p) {
        std::uint32_t state = 0;
        for (std::size_t i = ranges[p].begin; i < ranges[p].end; ++i) {
            const std::uint8_t symbol = m_class[m_patterns[p]->value[i]];
            const auto [edge, isNew] = trie[state].edges.try_emplace(symbol, static_cast<std::uint32_t>(trie.size()));
            state = edge->second;
            if (isNew)
                trie.emplace_back();
        }
        trie[state].anchors.emplace_back(p, static_cast<std::uint32_t>(ranges[p].end));
    }

    // Breadth-first numbers: every failure link leads to a smaller one, so the dense rows are a prefix.
    std::vector<std::uint32_t> order{0}, number(trie.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        number[order[i]] = static_cast<std::uint32_t>(i);
        for (const auto& [symbol, target] : trie[order[i]].edges)
            order.push_back(target);
    }
    const auto states = static_cast<std::uint32_t>(trie.size());
    m_denseStates = static_cast<std::uint32_t>(
        std::clamp<std::size_t>(DenseBytes / (m_classes * sizeof(std::uint32_t)), 1, states));
    m_dense.assign(static_cast<std::size_t>(m_denseStates) * m_classes, 0);
    m_suffix.assign(states, 0);
    m_deep.reserve(states - m_denseStates + 1);
    m_outputs.reserve(states + 1);

    std::vector<bool> hasOutput(states);
    const auto flagged = [&](std::uint32_t state) { return hasOutput[state] ? state | HasOutput : state; };
    std::vector<std::uint32_t> fail(states, 0);
    const auto step = [&](std::uint32_t state, std::uint8_t symbol) { // over trie edges and failure links
        for (;;) {
            const auto& edges = trie[order[state]].edges;
            if (const auto edge = edges.find(symbol); edge != edges.end())
                return number[edge->second];
            if (state == 0)
                return 0u;
            state = fail[state];
        }
    };
    for (std::uint32_t s = 0; s < states; ++s) {
        const Node& node = trie[order[s]];
        m_outputs.push_back(static_cast<std::uint32_t>(m_anchors.size()));
        for (const auto& [pattern, offset] : node.anchors)
            m_anchors.push_back({pattern, offset});
        for (const auto& [symbol, target] : node.edges)
            fail[number[target]] = s == 0 ? 0 : step(fail[s], symbol);
        m_suffix[s] = s == 0 ? 0 : !trie[order[fail[s]]].anchors.empty() ? fail[s] : m_suffix[fail[s]];
        hasOutput[s] = !node.anchors.empty() || m_suffix[s] != 0;
    }
    m_outputs.push_back(static_cast<std::uint32_t>(m_anchors.size()));

    for (std::uint32_t s = 0; s < states; ++s) {
        const Node& node = trie[order[s]];
        if (s < m_denseStates) {
            std::uint32_t* row = &m_dense[s * m_classes];
            if (s != 0)
                std::copy_n(&m_dense[fail[s] * m_classes], m_classes, row);
            for (const auto& [symbol, target] : node.edges)
                row[symbol] = flagged(number[target]);
        } else {
            m_deep.push_back({static_cast<std::uint32_t>(m_edges.size()), fail[s]});
            for (const auto& [symbol, target] : node.edges)
                m_edges.push_back({symbol, flagged(number[target])});
        }
    }
    m_deep.push_back({static_cast<std::uint32_t>(m_edges.size()), 0});
}

} // namespace vlt::scan
