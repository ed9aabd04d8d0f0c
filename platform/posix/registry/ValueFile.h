// The bytes of a value file.
//
//   ValueFileHeader   16 bytes: written once, when the file is made
//   name              UTF-16, as the value was first written; zeros up to a multiple of 8
//   ValueRecord       24 bytes
//   data              size bytes; what may follow is left from a longer value and means nothing
//
// All numbers are little-endian. Whoever knows the name knows where the record is: header and name
// serve enumeration only, and damage there costs no more than the case of the name.
//
// A value whose data ends within the first 4096 bytes is changed by one write of record and data: the
// host copies it within one page, so a writer that is killed leaves the old or the new bytes. A
// reader may still see a mixture while the copy is made; the check tells, and it reads again.
#pragma once

#include "platform/win32.h"

#include <cstddef>
#include <span>
#include <type_traits>

namespace vlt::posix::registry
{

constexpr std::size_t InPlaceLimit = 4096;
constexpr std::uint32_t ValueFileMagic = 0x31565256;   // "VRV1"
constexpr std::uint32_t ValueRecordMagic = 0x31525256; // "VRR1"

struct ValueFileHeader {
    std::uint32_t magic;
    std::uint32_t nameLength; // characters
    std::uint64_t nameCheck;  // of the length and the name
};
static_assert(sizeof(ValueFileHeader) == 16 && offsetof(ValueFileHeader, nameCheck) == 8);
static_assert(std::is_trivially_copyable_v<ValueFileHeader>);

struct ValueRecord {
    std::uint32_t magic;
    std::uint32_t type;
    std::uint32_t size; // bytes
    std::uint32_t reserved;
    std::uint64_t check; // of type, size and data
};
static_assert(sizeof(ValueRecord) == 24 && offsetof(ValueRecord, size) == 8 && offsetof(ValueRecord, check) == 16);
static_assert(std::is_trivially_copyable_v<ValueRecord>);

// Where the record of a value with such a name begins.
constexpr std::size_t RecordOffset(std::size_t nameLength) noexcept
{
    return sizeof(ValueFileHeader) + ((nameLength * sizeof(WCHAR) + 7) & ~std::size_t{7});
}

// Differs for any two texts that differ in one 8-byte word only, and with all but certainty otherwise.
std::uint64_t Check64(std::uint64_t seed, std::span<const std::byte> bytes) noexcept;

ValueFileHeader MakeHeader(WStringView name) noexcept;
ValueRecord MakeRecord(DWORD type, std::span<const std::byte> data) noexcept;

// Points into the parsed bytes.
struct ValueView {
    DWORD type = 0;
    std::span<const std::byte> data;
    std::uint64_t end = 0; // of the data, from the start of the file
};

enum class ValueState {
    Good,
    Short, // there is more of it: view.end bytes are needed
    Torn,  // the record fails its check: being written, or damaged
    Bad,   // there is no record
};

// Takes the first bytes of a file. Accepts any bytes.
ValueState ParseValue(std::span<const std::byte> bytes, std::size_t nameLength, ValueView& view) noexcept;

// The name at the front of the file, pointing into the bytes, which are aligned to 8. False when it
// is damaged or not all there.
bool ParseName(std::span<const std::byte> bytes, WStringView& name) noexcept;

} // namespace vlt::posix::registry
