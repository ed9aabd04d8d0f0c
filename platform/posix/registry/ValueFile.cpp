#include "platform/posix/registry/ValueFile.h"

#include "platform/posix/registry/KeyName.h"

#include <cstring>

namespace vlt::posix::registry
{

std::uint64_t Check64(std::uint64_t seed, std::span<const std::byte> bytes) noexcept
{
    // Each step is a bijection of the word and of the state.
    std::uint64_t state = seed + 0x9E3779B97F4A7C15u;
    const auto mix = [&state](std::uint64_t word) {
        state ^= word;
        state = ((state << 29) | (state >> 35)) * 0xD6E8FEB86659FD93u;
    };
    while (bytes.size() >= sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data(), sizeof(word));
        mix(word);
        bytes = bytes.subspan(sizeof(word));
    }
    if (!bytes.empty()) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data(), bytes.size());
        mix(word);
    }
    return state ^ (state >> 32);
}

ValueFileHeader MakeHeader(WStringView name) noexcept
{
    const auto length = static_cast<std::uint32_t>(name.size());
    return {ValueFileMagic, length, Check64(length, std::as_bytes(std::span(name)))};
}

ValueRecord MakeRecord(DWORD type, std::span<const std::byte> data) noexcept
{
    const auto size = static_cast<std::uint32_t>(data.size());
    return {ValueRecordMagic, type, size, 0, Check64((std::uint64_t{type} << 32) | size, data)};
}

ValueState ParseValue(std::span<const std::byte> bytes, std::size_t nameLength, ValueView& view) noexcept
{
    const std::size_t at = RecordOffset(nameLength);
    view.end = at + sizeof(ValueRecord);
    if (bytes.size() < view.end)
        return ValueState::Short;
    ValueRecord record;
    std::memcpy(&record, bytes.data() + at, sizeof(record));
    if (record.magic != ValueRecordMagic)
        return ValueState::Bad;
    view.end += record.size;
    if (bytes.size() < view.end)
        return ValueState::Short;
    view.type = record.type;
    view.data = bytes.subspan(at + sizeof(record), record.size);
    return MakeRecord(view.type, view.data).check == record.check ? ValueState::Good : ValueState::Torn;
}

bool ParseName(std::span<const std::byte> bytes, WStringView& name) noexcept
{
    ValueFileHeader header;
    if (bytes.size() < sizeof(header))
        return false;
    std::memcpy(&header, bytes.data(), sizeof(header));
    if (header.magic != ValueFileMagic || header.nameLength > MaxValueName ||
        bytes.size() < RecordOffset(header.nameLength))
        return false;
    name = {reinterpret_cast<const WCHAR*>(bytes.data() + sizeof(header)), header.nameLength};
    return MakeHeader(name).nameCheck == header.nameCheck;
}

} // namespace vlt::posix::registry
