#include "suite/ArdScan/PatternFile.h"

#include <algorithm>
#include <cstring>

namespace vlt::scan
{
namespace
{

constexpr std::uint8_t Magic[8] = {'V', 'L', 'T', 'P', 'T', 'R', 'N', 0x1A};
constexpr std::uint32_t FormatVersion = 1;

constexpr std::array<std::uint32_t, 256> CrcTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c >> 1) ^ (c & 1 ? 0xEDB88320u : 0u);
        table[i] = c;
    }
    return table;
}();

// Reads numbers and bytes in order and remembers that the input was too short.
class Reader
{
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    template <typename T>
    T Number()
    {
        T value = 0;
        const auto bytes = Bytes(sizeof(T));
        for (std::size_t i = bytes.size(); i-- > 0;)
            value = static_cast<T>(static_cast<std::uint64_t>(value) << 8 | bytes[i]);
        return value;
    }

    std::span<const std::uint8_t> Bytes(std::size_t count)
    {
        if (count > m_bytes.size()) {
            m_short = true;
            m_bytes = {};
            return {};
        }
        const auto result = m_bytes.first(count);
        m_bytes = m_bytes.subspan(count);
        return result;
    }

    bool Short() const { return m_short; }
    std::size_t Left() const { return m_bytes.size(); }

private:
    std::span<const std::uint8_t> m_bytes;
    bool m_short = false;
};

class Writer
{
public:
    template <typename T>
    void Number(T value)
    {
        for (std::size_t i = 0; i < sizeof(T); ++i)
            m_bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
    }
    template <typename Range>
    void Bytes(const Range& range)
    {
        for (auto byte : range)
            m_bytes.push_back(static_cast<std::uint8_t>(byte));
    }
    std::vector<std::uint8_t>& Result() { return m_bytes; }

private:
    std::vector<std::uint8_t> m_bytes;
};

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

bool ReadPattern(Reader& reader, BytePattern& pattern)
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

bool ReadHash(Reader& reader, HashPattern& pattern)
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
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool own = i >= PatternChecksumOffset && i < PatternChecksumOffset + 4;
        crc = CrcTable[(crc ^ (own ? 0 : bytes[i])) & 0xFF] ^ (crc >> 8);
    }
    return ~crc;
}

std::optional<PatternHeader> ReadPatternHeader(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < PatternHeaderSize || std::memcmp(bytes.data(), Magic, sizeof(Magic)) != 0)
        return std::nullopt;
    Reader reader(bytes.subspan(sizeof(Magic)));
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
    Reader reader(bytes.subspan(PatternHeaderSize));
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
    Writer body;
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

    Writer whole;
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
