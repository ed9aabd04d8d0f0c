// One generation of patterns: everything that a scan compares a file with, made ready once and never
// changed, and the scanner that runs a file past it.
#pragma once

#include "suite/ArdScan/Matcher.h"
#include "suite/ArdScan/Sha256.h"
#include "suite/Common/PatternFile.h"

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace vlt::scan
{

// Gives the next bytes of a file: their number, 0 at its end, negative when it cannot be read.
using ReadFunction = std::function<std::ptrdiff_t(std::span<std::uint8_t>)>;

// Which kinds of threats a scan reports.
struct ScanFilter {
    std::uint32_t spywareMask = 0;
    bool packers = false;
};

struct Threat {
    const Signature* signature;
    PatternKind kind;
    std::uint32_t id; // position in the pattern set
};

enum class ScanOutcome { Clean, Infected, Failed };

struct ScanResult {
    ScanOutcome outcome = ScanOutcome::Failed;
    Threat threat{};
};

// The files of one generation. They are shared: a reload of one kind keeps the others.
struct PatternFiles {
    std::shared_ptr<const PatternFile> virus, spyware, packer;
};

class CPatternSet
{
public:
    // A file that is missing is null; the virus file is not.
    CPatternSet(PatternFiles files, std::uint32_t generation);
    CPatternSet(const CPatternSet&) = delete;

    const PatternFiles& Files() const { return m_files; }
    const CMatcher& Matcher() const { return m_matcher; }
    bool HashesSize(std::uint64_t size) const { return m_hashAnySize || m_hashSizes.contains(size); }
    // Null when there is none.
    const Threat* FindHash(const std::array<std::uint8_t, 32>& hash, std::uint64_t size) const;
    const Threat& PatternThreat(std::uint32_t pattern) const { return m_threats[pattern]; }

    std::uint32_t VirusVersion() const { return m_files.virus->version; }
    std::uint32_t SpywareVersion() const { return m_files.spyware ? m_files.spyware->version : 0; } // 0 when not loaded
    std::uint32_t Generation() const { return m_generation; }
    std::uint32_t PatternCount() const { return m_patternCount; }
    std::uint32_t HashCount() const { return m_hashCount; }
    const std::vector<Threat>& Threats() const { return m_threats; }

private:
    struct HashOf {
        std::size_t operator()(const std::array<std::uint8_t, 32>& hash) const;
    };
    std::vector<const BytePattern*> Collect();

    PatternFiles m_files;
    std::uint32_t m_generation;
    std::uint32_t m_patternCount = 0;
    std::uint32_t m_hashCount = 0;
    std::vector<Threat> m_threats; // of the byte patterns, then of the hashes
    CMatcher m_matcher;
    std::unordered_multimap<std::array<std::uint8_t, 32>, std::pair<std::uint64_t, std::uint32_t>, HashOf> m_hashes;
    std::unordered_map<std::uint64_t, std::uint32_t> m_hashSizes;
    bool m_hashAnySize = false;
};

// Holds the buffers of one thread's scans; memory is bounded by the block size and the longest pattern.
class CScanner
{
public:
    CScanner();

    // Reads a file of this size to its end, in one pass, and stops at the first threat that the filter
    // lets through. A virus found by its bytes is reported before one found by its hash.
    ScanResult Scan(const CPatternSet& set, const ScanFilter& filter, std::uint64_t size, const ReadFunction& read);

    // As Scan, but calls found for every threat, with where it lies, until that returns true.
    using FoundFunction = std::function<bool(const Threat&, std::uint64_t offset, std::uint64_t length)>;
    ScanOutcome FindAll(const CPatternSet& set, const ScanFilter& filter, std::uint64_t size, const ReadFunction& read,
                        const FoundFunction& found);

private:
    template <typename Hit>
    ScanOutcome Walk(const CPatternSet& set, std::uint64_t size, const ReadFunction& read, Hit&& hit);

    static constexpr std::size_t BlockSize = 128u << 10;

    std::vector<std::uint8_t> m_buffer;
    CSha256 m_hash;
};

} // namespace vlt::scan
