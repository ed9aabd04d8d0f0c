// The enciphered 32-bit registry value: how one number is kept so that editing the value by hand
// does not switch anything off unnoticed.
//
// A REG_BINARY of exactly eight bytes, little-endian:
//   0  u32  salt, any number, new with each write
//   4  u32  value xor CipherMask(salt)
// This is obfuscation, not secrecy: whoever has this header can write the value. Every pair decodes
// to some number, so only the type and the size tell a valid value from an invalid one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vlt
{

inline constexpr std::size_t kCipheredValueSize = 8;
using CipheredBytes = std::array<std::uint8_t, kCipheredValueSize>;

// Two rounds of "fold the high bits down, multiply by an odd number", modulo 2^32. One to one, so
// that two salts never give one mask; not the identity for 0, so that a zero salt hides the value too.
constexpr std::uint32_t CipherMask(std::uint32_t salt)
{
    std::uint32_t mask = salt + 0x56544C31u;
    mask ^= mask >> 15;
    mask *= 0x2C1B3C6Du;
    mask ^= mask >> 12;
    mask *= 0x297A2D39u;
    mask ^= mask >> 15;
    return mask;
}

constexpr CipheredBytes EncodeCipheredValue(std::uint32_t value, std::uint32_t salt)
{
    const std::uint32_t words[2] = {salt, value ^ CipherMask(salt)};
    CipheredBytes bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(words[i / 4] >> (i % 4 * 8));
    return bytes;
}

constexpr std::uint32_t DecodeCipheredValue(std::span<const std::uint8_t, kCipheredValueSize> bytes)
{
    std::uint32_t words[2] = {};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        words[i / 4] |= static_cast<std::uint32_t>(bytes[i]) << (i % 4 * 8);
    return words[1] ^ CipherMask(words[0]);
}

} // namespace vlt
