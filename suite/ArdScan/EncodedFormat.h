// The format of encoded files, in which infected files are kept: nothing in them can be run, and no
// scanner finds in them what it would find in the original.
//
//     offset width
//          0   8  "VLTENCF" and the byte 1A
//          8   4  format version, 1
//         12   4  size of the header: these 160 bytes, the path and the extended attributes
//         16   8  size of the content
//         24  32  SHA-256 of the content
//         56   8  time of the encoding, seconds since 1 January 1970 UTC
//         64   8  seed of the keystream
//         72   4  attributes, FILE_ATTRIBUTE_...
//         76   4  flags: bit 0 enciphered (always set), bit 1 mode, owner, group are valid
//         80  24  creation, last access, last write: signed seconds since 1970 UTC
//        104  12  their nanoseconds; a creation time of all zeros is not known
//        116  12  mode, owner, group
//        128   4  bytes of the path
//        132   4  bytes of the extended attributes
//        136   4  CRC-32 of the header as it is in the file, this field taken as 0
//        140  20  0
//        160      the path of the original, UTF-16, as Windows writes it
//                 the extended attributes, each: length of name (2), of value (4), name, value
//                 the content, to the end of the file
//
// Numbers are little-endian. Everything from offset 160 on is combined by exclusive or with the
// keystream: the 64-bit outputs of SplitMix64 from the seed, the first one at offset 160. The keystream is
// no secret and protects nothing from being read.
#pragma once

#include "platform/win32.h"
#include "suite/ArdScan/FileFacts.h"

#include <cstddef>
#include <optional>
#include <span>

namespace vlt::scan
{

constexpr std::size_t EncodedFixedSize = 160;
constexpr std::size_t EncodedChecksumOffset = 136;
constexpr std::size_t EncodedMaxPath = 65536;           // bytes
constexpr std::size_t EncodedMaxExtended = 1024 * 1024; // bytes

struct EncodedHeader {
    WString path;
    FileFacts facts;
    std::uint64_t size = 0;
    std::array<std::uint8_t, 32> hash{};
    std::uint64_t time = 0;
    std::uint64_t seed = 0;
};

// Combines the bytes at this offset of an encoded file, 160 or more, with the keystream: both ways.
void ApplyKeystream(std::uint64_t seed, std::uint64_t offset, std::span<std::uint8_t> bytes);

// The header's bytes; nothing when the path or the extended attributes are larger than the limits.
std::optional<std::vector<std::uint8_t>> WriteEncodedHeader(const EncodedHeader& header);

// How many bytes the header has that begins with these EncodedFixedSize; 0 when it is not one.
std::size_t EncodedHeaderSize(std::span<const std::uint8_t> fixed);

// A whole header of that many bytes; nothing when any of it is not as it should be.
std::optional<EncodedHeader> ReadEncodedHeader(std::span<const std::uint8_t> bytes);

} // namespace vlt::scan
