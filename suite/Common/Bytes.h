// Reading and writing of little-endian formats, and the CRC-32 that guards their headers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vlt::scan
{

inline constexpr std::array<std::uint32_t, 256> CrcTable = [] {
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
class ByteReader
{
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

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

class ByteWriter
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

// CRC-32 of the bytes, those of the checksum's own field (four from `field` on) taken as 0.
inline std::uint32_t ChecksumWithout(std::span<const std::uint8_t> bytes, std::size_t field)
{
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool own = i >= field && i < field + 4;
        crc = CrcTable[(crc ^ (own ? 0 : bytes[i])) & 0xFF] ^ (crc >> 8);
    }
    return ~crc;
}

} // namespace vlt::scan
