// Pattern files, "ptf$qrv.001" and the like: signatures as they lie on disk, with the checks that make
// a file usable. The format is described in README.md; all numbers are little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vlt::scan
{

enum class PatternKind : std::uint32_t { Virus = 1, Spyware = 2, Packer = 3, WhiteList = 4, BlackList = 5 };

// Bits of Signature::flags.
constexpr std::uint16_t SignatureCleanable = 1; // what it matches may be taken out of the file, all of it for a hash
constexpr std::uint16_t SignatureBlanked = 2;   // and is overwritten with zeros instead, so that nothing moves
constexpr std::uint16_t SignatureCrash = 4;     // finding it crashes the engine: a bad pattern, made for tests

// What is common to both kinds of entries. The name is 1 to 131 characters of printable ASCII without
// comma or blank, since lists of names are separated by them.
struct Signature {
    std::string name;
    std::uint16_t flags = 0;
    std::uint32_t spywareKind = 0; // one AsSpywareKind bit in a spyware file, else 0
};

// A byte pattern of 4 to 1024 bytes; mask 0 is a wildcard, 0xFF a literal. It holds at least one run
// of MinLiteralRun literals.
struct BytePattern : Signature {
    std::vector<std::uint8_t> value;
    std::vector<std::uint8_t> mask;
};

// The SHA-256 of a whole file. A size of 0 is any size; a known size spares the hashing of all files
// of other sizes.
struct HashPattern : Signature {
    std::array<std::uint8_t, 32> hash{};
    std::uint64_t size = 0;
};

constexpr std::size_t MaxNameLength = 131;
constexpr std::size_t MinPatternLength = 4;
constexpr std::size_t MaxPatternLength = 1024;
constexpr std::size_t MinLiteralRun = 2;
constexpr std::size_t MaxPatternFileSize = 256u << 20;

struct PatternFile {
    PatternKind kind = PatternKind::Virus;
    std::uint32_t version = 0;
    std::vector<BytePattern> patterns;
    std::vector<HashPattern> hashes;
};

constexpr std::size_t PatternHeaderSize = 64;

// Kind and version alone, from the first PatternHeaderSize bytes of a file; the checksum is not tested.
struct PatternHeader {
    PatternKind kind;
    std::uint32_t version;
    std::uint32_t patternCount;
    std::uint32_t hashCount;
    std::uint32_t bodySize;
    std::uint32_t checksum;
};
std::optional<PatternHeader> ReadPatternHeader(std::span<const std::uint8_t> bytes);

// The whole file, or nothing when any byte of it is not as it should be. Memory used is bounded by the
// size of the input.
std::optional<PatternFile> ReadPatternFile(std::span<const std::uint8_t> bytes);

// The checksum that belongs at PatternChecksumOffset of these bytes.
std::uint32_t PatternChecksum(std::span<const std::uint8_t> bytes);
constexpr std::size_t PatternChecksumOffset = 32;

// The file's bytes; nothing when an entry breaks the limits above.
std::optional<std::vector<std::uint8_t>> WritePatternFile(const PatternFile& file);

bool IsValid(const BytePattern& pattern);
bool IsValid(const HashPattern& pattern);

} // namespace vlt::scan
