#include "suite/ArdScan/EncodedFormat.h"

#include "suite/Common/Bytes.h"

#include <algorithm>
#include <cstring>

namespace vlt::scan
{
namespace
{

constexpr std::uint8_t Magic[8] = {'V', 'L', 'T', 'E', 'N', 'C', 'F', 0x1A};
constexpr std::uint32_t FormatVersion = 1;
constexpr std::uint32_t FlagEnciphered = 1;
constexpr std::uint32_t FlagHasOwner = 2;
constexpr std::size_t SizeOffset = 12;
constexpr std::size_t LengthsOffset = 128;
constexpr std::uint32_t Billion = 1'000'000'000;

std::uint64_t KeyWord(std::uint64_t seed, std::uint64_t index)
{
    std::uint64_t z = seed + (index + 1) * 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

std::uint32_t NumberAt(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    return ByteReader(bytes.subspan(offset)).Number<std::uint32_t>();
}

void PutNumber(std::span<std::uint8_t> bytes, std::size_t offset, std::uint32_t number)
{
    for (std::size_t i = 0; i < sizeof(number); ++i)
        bytes[offset + i] = static_cast<std::uint8_t>(number >> (8 * i));
}

bool ReadExtended(ByteReader reader, std::vector<ExtendedAttribute>& extended)
{
    while (reader.Left() != 0) {
        const auto nameLength = reader.Number<std::uint16_t>();
        const auto valueLength = reader.Number<std::uint32_t>();
        const auto name = reader.Bytes(nameLength), value = reader.Bytes(valueLength);
        if (reader.Short() || name.empty() || std::find(name.begin(), name.end(), 0) != name.end())
            return false;
        extended.push_back({{name.begin(), name.end()}, {value.begin(), value.end()}});
    }
    return true;
}

WString ReadPath(ByteReader reader)
{
    WString path;
    while (reader.Left() != 0)
        path += static_cast<WCHAR>(reader.Number<std::uint16_t>());
    return path;
}

} // namespace

void ApplyKeystream(std::uint64_t seed, std::uint64_t offset, std::span<std::uint8_t> bytes)
{
    std::uint64_t at = offset - EncodedFixedSize;
    std::size_t i = 0;
    const auto single = [&] {
        bytes[i++] ^= static_cast<std::uint8_t>(KeyWord(seed, at / 8) >> (8 * (at % 8)));
        ++at;
    };
    while (i < bytes.size() && at % 8 != 0)
        single();
    for (; bytes.size() - i >= 8; i += 8, at += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + i, sizeof(word)); // both hosts are little-endian
        word ^= KeyWord(seed, at / 8);
        std::memcpy(bytes.data() + i, &word, sizeof(word));
    }
    while (i < bytes.size())
        single();
}

std::optional<std::vector<std::uint8_t>> WriteEncodedHeader(const EncodedHeader& header)
{
    ByteWriter path, extended, whole;
    for (const WCHAR unit : header.path)
        path.Number(static_cast<std::uint16_t>(unit));
    for (const ExtendedAttribute& attribute : header.facts.extended) {
        if (attribute.name.empty() || attribute.name.size() > 0xFFFF || attribute.value.size() > EncodedMaxExtended)
            return std::nullopt;
        extended.Number(static_cast<std::uint16_t>(attribute.name.size()));
        extended.Number(static_cast<std::uint32_t>(attribute.value.size()));
        extended.Bytes(attribute.name);
        extended.Bytes(attribute.value);
    }
    if (path.Result().size() > EncodedMaxPath || extended.Result().size() > EncodedMaxExtended)
        return std::nullopt;

    const FileFacts& facts = header.facts;
    whole.Bytes(Magic);
    whole.Number(FormatVersion);
    whole.Number(static_cast<std::uint32_t>(EncodedFixedSize + path.Result().size() + extended.Result().size()));
    whole.Number(header.size);
    whole.Bytes(header.hash);
    whole.Number(header.time);
    whole.Number(header.seed);
    whole.Number(facts.attributes);
    whole.Number(FlagEnciphered | (facts.hasOwner ? FlagHasOwner : 0));
    for (const FileTime& time : {facts.created, facts.accessed, facts.modified})
        whole.Number(time.seconds);
    for (const FileTime& time : {facts.created, facts.accessed, facts.modified})
        whole.Number(time.nanoseconds);
    for (const std::uint32_t number : {facts.mode, facts.owner, facts.group})
        whole.Number(number);
    whole.Number(static_cast<std::uint32_t>(path.Result().size()));
    whole.Number(static_cast<std::uint32_t>(extended.Result().size()));
    std::vector<std::uint8_t> bytes = std::move(whole.Result());
    bytes.resize(EncodedFixedSize);
    bytes.insert(bytes.end(), path.Result().begin(), path.Result().end());
    bytes.insert(bytes.end(), extended.Result().begin(), extended.Result().end());
    ApplyKeystream(header.seed, EncodedFixedSize, std::span(bytes).subspan(EncodedFixedSize));
    PutNumber(bytes, EncodedChecksumOffset, ChecksumWithout(bytes, EncodedChecksumOffset));
    return bytes;
}

std::size_t EncodedHeaderSize(std::span<const std::uint8_t> fixed)
{
    if (fixed.size() < EncodedFixedSize || std::memcmp(fixed.data(), Magic, sizeof(Magic)) != 0 ||
        NumberAt(fixed, sizeof(Magic)) != FormatVersion)
        return 0;
    const std::size_t path = NumberAt(fixed, LengthsOffset), extended = NumberAt(fixed, LengthsOffset + 4);
    if (path > EncodedMaxPath || path % 2 != 0 || extended > EncodedMaxExtended ||
        NumberAt(fixed, SizeOffset) != EncodedFixedSize + path + extended)
        return 0;
    return EncodedFixedSize + path + extended;
}

std::optional<EncodedHeader> ReadEncodedHeader(std::span<const std::uint8_t> bytes)
{
    if (EncodedHeaderSize(bytes) != bytes.size() || bytes.empty() ||
        NumberAt(bytes, EncodedChecksumOffset) != ChecksumWithout(bytes, EncodedChecksumOffset))
        return std::nullopt;
    EncodedHeader header;
    FileFacts& facts = header.facts;
    ByteReader reader(bytes.subspan(SizeOffset + 4));
    header.size = reader.Number<std::uint64_t>();
    const auto hash = reader.Bytes(header.hash.size());
    std::copy(hash.begin(), hash.end(), header.hash.begin());
    header.time = reader.Number<std::uint64_t>();
    header.seed = reader.Number<std::uint64_t>();
    facts.attributes = reader.Number<std::uint32_t>();
    const auto flags = reader.Number<std::uint32_t>();
    facts.hasOwner = (flags & FlagHasOwner) != 0;
    for (FileTime* time : {&facts.created, &facts.accessed, &facts.modified})
        time->seconds = reader.Number<std::int64_t>();
    for (FileTime* time : {&facts.created, &facts.accessed, &facts.modified})
        time->nanoseconds = reader.Number<std::uint32_t>();
    for (std::uint32_t* number : {&facts.mode, &facts.owner, &facts.group})
        *number = reader.Number<std::uint32_t>();
    if ((flags & FlagEnciphered) == 0 || facts.created.nanoseconds >= Billion ||
        facts.accessed.nanoseconds >= Billion || facts.modified.nanoseconds >= Billion)
        return std::nullopt;

    std::vector<std::uint8_t> rest(bytes.begin() + EncodedFixedSize, bytes.end());
    ApplyKeystream(header.seed, EncodedFixedSize, rest);
    const std::size_t pathSize = NumberAt(bytes, LengthsOffset);
    header.path = ReadPath(ByteReader(std::span(rest).first(pathSize)));
    if (header.path.find(WCHAR()) != WString::npos ||
        !ReadExtended(ByteReader(std::span(rest).subspan(pathSize)), facts.extended))
        return std::nullopt;
    return header;
}

} // namespace vlt::scan
