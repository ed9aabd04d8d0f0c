// Finds all byte patterns in one pass over a file: Aho-Corasick over an anchor of each pattern, a few
// bytes of its longest run of literals, then a comparison of the whole pattern around each anchor.
//
// The automaton is compact: input bytes are mapped to the classes that the anchors tell apart, states
// near the root have full rows and the many deep ones only their own edges and a failure link. At the
// root, pairs of bytes that begin no anchor are skipped without walking the automaton.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vlt::scan
{

struct BytePattern;

class CMatcher
{
public:
    // The patterns must outlive the matcher and be valid.
    explicit CMatcher(std::vector<const BytePattern*> patterns);

    std::size_t MaxLength() const { return m_maxLength; }
    bool Empty() const { return m_patterns.empty(); }

    // Bytes that a search in pieces must keep in front of and after the piece.
    struct State {
        std::uint32_t automaton = 0;
    };

    // Walks [from, to) of the window and calls hit(index of pattern, offset in window) for each pattern
    // found whose anchor ends there; hit returns true to end the search, which then returns true. The
    // window must hold MaxLength() bytes before from and after to, as far as the file has them.
    template <typename Hit>
    bool Search(std::span<const std::uint8_t> window, std::size_t from, std::size_t to, State& state, Hit&& hit) const;

private:
    struct Anchor {
        std::uint32_t pattern;
        std::uint32_t offset; // of the byte after the anchor within its pattern
    };
    struct Edge {
        std::uint8_t symbol;
        std::uint32_t target;
    };
    struct Deep {
        std::uint32_t firstEdge;
        std::uint32_t fail;
    };

    static constexpr std::uint32_t HasOutput = 0x80000000u;
    static constexpr std::size_t MaxAnchor = 8;
    static constexpr std::size_t DenseBytes = 4u << 20;

    std::uint32_t Next(std::uint32_t state, std::uint8_t symbol) const;
    bool Matches(const BytePattern& pattern, std::span<const std::uint8_t> window, std::size_t start) const;
    void Build();

    std::vector<const BytePattern*> m_patterns;
    std::size_t m_maxLength = 0;
    std::array<std::uint8_t, 256> m_class{};
    std::size_t m_classes = 1;
    std::bitset<65536> m_pairs;         // pairs of bytes that begin an anchor
    std::vector<std::uint32_t> m_dense; // m_denseStates rows of m_classes targets
    std::uint32_t m_denseStates = 0;
    std::vector<Deep> m_deep;             // the other states, and one past the end
    std::vector<Edge> m_edges;            // of the deep states, in the order of their symbols
    std::vector<std::uint32_t> m_outputs; // first anchor of each state, and one past the end
    std::vector<std::uint32_t> m_suffix;  // nearest state on the failure path that has anchors, 0 is none
    std::vector<Anchor> m_anchors;
};

template <typename Hit>
bool CMatcher::Search(std::span<const std::uint8_t> window, std::size_t from, std::size_t to, State& state,
                      Hit&& hit) const
{
    std::uint32_t s = state.automaton;
    for (std::size_t i = from; i < to; ++i) {
        if (s == 0) {
            while (i + 1 < to && !m_pairs[static_cast<std::size_t>(window[i] << 8 | window[i + 1])])
                ++i;
        }
        s = Next(s, m_class[window[i]]);
        if (!(s & HasOutput))
            continue;
        s &= ~HasOutput;
        for (std::uint32_t o = s; o != 0; o = m_suffix[o]) {
            for (std::uint32_t a = m_outputs[o]; a < m_outputs[o + 1]; ++a) {
                const Anchor& anchor = m_anchors[a];
                if (i + 1 < anchor.offset)
                    continue;
                const std::size_t start = i + 1 - anchor.offset;
                if (Matches(*m_patterns[anchor.pattern], window, start) && hit(anchor.pattern, start))
                    return true;
            }
        }
    }
    state.automaton = s;
    return false;
}

inline std::uint32_t CMatcher::Next(std::uint32_t state, std::uint8_t symbol) const
{
    while (state >= m_denseStates) {
        const Deep& deep = m_deep[state - m_denseStates];
        const std::uint32_t end = (&deep)[1].firstEdge;
        for (std::uint32_t e = deep.firstEdge; e < end; ++e)
            if (m_edges[e].symbol == symbol)
                return m_edges[e].target;
        state = deep.fail;
    }
    return m_dense[state * m_classes + symbol];
}

} // namespace vlt::scan
