#include "suite/Common/PatternFile.h"

#include "suite/Common/Bytes.h"

#include <algorithm>
#include <cstring>

namespace vlt::scan
{
namespace
{

constexpr std::uint8_t Magic[8] = {'V', 'L', 'T', 'P', 'T', 'R', 'N', 0x1A};
constexpr std::uint32_t FormatVersion = 1;

bool IsValidSignature(const Signature& signature)
{
    return !signature.name.empty() && signature.name.size() <= MaxNameLength &&
           std::all_of(signature.name.begin(), signature.name.end(),
                       [](char c) { return c > ' ' && c < 0x7F && c != ',' && c != '|'; });
}

std::size_t LongestRun(std::span<const std::uint8_t> mask)
{
    std::size_t longest = 0, run = 0;
    for (std::uint8_t byte : mask) {
        run = byte ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return longest;
}

std::string Text(std::span<const std::uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

bool ReadPattern(ByteReader& reader, BytePattern& pattern)
{
    const auto nameLength = reader.Number<std::uint16_t>();
    pattern.flags = reader.Number<std::uint16_t>();
    pattern.spywareKind = reader.Number<std::uint32_t>();
    const auto length = reader.Number<std::uint32_t>();
    if (nameLength > MaxNameLength || length > MaxPatternLength)
        return false;
    pattern.name = Text(reader.Bytes(nameLength));
    const auto value = reader.Bytes(length), mask = reader.Bytes(length);
    pattern.value.assign(value.begin(), value.end());
    pattern.mask.assign(mask.begin(), mask.end());
    return !reader.Short() && IsValid(pattern);
}

bool ReadHash(ByteReader& reader, HashPattern& pattern)
{
    const auto nameLength = reader.Number<std::uint16_t>();
    pattern.flags = reader.Number<std::uint16_t>();
    pattern.spywareKind = reader.Number<std::uint32_t>();
    pattern.size = reader.Number<std::uint64_t>();
    const auto hash = reader.Bytes(pattern.hash.size());
    std::copy(hash.begin(), hash.end(), pattern.hash.begin());
    pattern.name = Text(reader.Bytes(nameLength));
    return !reader.Short() && IsValid(pattern);
}

} // namespace

bool IsValid(const BytePattern& pattern)
{
    return IsValidSignature(pattern) && pattern.value.size() >= MinPatternLength &&
           pattern.value.size() <= MaxPatternLength && pattern.value.size() == pattern.mask.size() &&
           std::all_of(pattern.mask.begin(), pattern.mask.end(), [](std::uint8_t m) { return m == 0 || m == 0xFF; }) &&
           LongestRun(pattern.mask) >= MinLiteralRun;
}

bool IsValid(const HashPattern& pattern)
{
    return IsValidSignature(pattern);
}

std::uint32_t PatternChecksum(std::span<const std::uint8_t> bytes)
{
    return ChecksumWithout(bytes, PatternChecksumOffset);
}

std::optional<PatternHeader> ReadPatternHeader(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < PatternHeaderSize || std::memcmp(bytes.data(), Magic, sizeof(Magic)) != 0)
        return std::nullopt;
    ByteReader reader(bytes.subspan(sizeof(Magic)));
    if (reader.Number<std::uint32_t>() != FormatVersion)
        return std::nullopt;
    PatternHeader header{};
    const auto kind = reader.Number<std::uint32_t>();
    if (kind < 1 || kind > 5)
        return std::nullopt;
    header.kind = static_cast<PatternKind>(kind);
    header.version = reader.Number<std::uint32_t>();
    header.patternCount = reader.Number<std::uint32_t>();
    header.hashCount = reader.Number<std::uint32_t>();
    header.bodySize = reader.Number<std::uint32_t>();
    header.checksum = reader.Number<std::uint32_t>();
    return header;
}

std::optional<PatternFile> ReadPatternFile(std::span<const std::uint8_t> bytes)
{
    const auto header = ReadPatternHeader(bytes);
    if (!header || header->bodySize != bytes.size() - PatternHeaderSize || header->checksum != PatternChecksum(bytes))
        return std::nullopt;
    PatternFile file;
    file.kind = header->kind;
    file.version = header->version;
    ByteReader reader(bytes.subspan(PatternHeaderSize));
    // Counts are not trusted with memory: entries are appended while the input lasts.
    for (std::uint32_t i = 0; i < header->patternCount; ++i)
        if (!ReadPattern(reader, file.patterns.emplace_back()))
            return std::nullopt;
    for (std::uint32_t i = 0; i < header->hashCount; ++i)
        if (!ReadHash(reader, file.hashes.emplace_back()))
            return std::nullopt;
    if (reader.Left() != 0)
        return std::nullopt;
    return file;
}

std::optional<std::vector<std::uint8_t>> WritePatternFile(const PatternFile& file)
{
    ByteWriter body;
    for (const BytePattern& pattern : file.patterns) {
        if (!IsValid(pattern))
            return std::nullopt;
        body.Number(static_cast<std::uint16_t>(pattern.name.size()));
        body.Number(pattern.flags);
        body.Number(pattern.spywareKind);
        body.Number(static_cast<std::uint32_t>(pattern.value.size()));
        body.Bytes(pattern.name);
        body.Bytes(pattern.value);
        body.Bytes(pattern.mask);
    }
    for (const HashPattern& pattern : file.hashes) {
        if (!IsValid(pattern))
            return std::nullopt;
        body.Number(static_cast<std::uint16_t>(pattern.name.size()));
        body.Number(pattern.flags);
        body.Number(pattern.spywareKind);
        body.Number(pattern.size);
        body.Bytes(pattern.hash);
        body.Bytes(pattern.name);
    }
    if (body.Result().size() > MaxPatternFileSize - PatternHeaderSize)
        return std::nullopt;

    ByteWriter whole;
    whole.Bytes(Magic);
    whole.Number(FormatVersion);
    whole.Number(static_cast<std::uint32_t>(file.kind));
    whole.Number(file.version);
    whole.Number(static_cast<std::uint32_t>(file.patterns.size()));
    whole.Number(static_cast<std::uint32_t>(file.hashes.size()));
    whole.Number(static_cast<std::uint32_t>(body.Result().size()));
    whole.Result().resize(PatternHeaderSize);
    whole.Bytes(body.Result());
    const std::uint32_t checksum = PatternChecksum(whole.Result());
    for (std::size_t i = 0; i < 4; ++i)
        whole.Result()[PatternChecksumOffset + i] = static_cast<std::uint8_t>(checksum >> (8 * i));
    return std::move(whole.Result());
}

} // namespace vlt::scan
