// The version and the strings of a program or library, as cmake/VltResources.cmake puts them into it.
//
// The version block is the whole of the ELF section ".vlt_version", so that it is read from a file
// that is not loaded. The strings are registered while the file is loaded.
#pragma once

#include "platform/posix/win32/system.h"

#include <cstddef>
#include <span>
#include <type_traits>

namespace vlt::posix
{

inline constexpr DWORD kVersionMagic = 0x56544C56; // "VLTV"
inline constexpr DWORD kFixedSignature = 0xFEEF04BD;
inline constexpr char kVersionSection[] = ".vlt_version";

struct VersionBlock {
    DWORD magic;
    DWORD size;
    VS_FIXEDFILEINFO fixed;
    char description[128]; // UTF-8, zero-terminated, as are all below
    char company[64];
    char product[64];
    char fileName[64];
    char copyright[128];
};
static_assert(sizeof(VS_FIXEDFILEINFO) == 52);
static_assert(offsetof(VersionBlock, fixed) == 8 && offsetof(VersionBlock, description) == 60);
static_assert(sizeof(VersionBlock) == 508 && std::is_trivially_copyable_v<VersionBlock>);

struct StringEntry {
    UINT id;
    const char16_t* text;
};

// Makes the strings of the file it is compiled into known to LoadStringW for as long as it is loaded.
// The entries and the object must be static objects of that file.
class StringTable
{
public:
    explicit StringTable(std::span<const StringEntry> entries);
    ~StringTable();
    StringTable(const StringTable&) = delete;
    StringTable& operator=(const StringTable&) = delete;
};

} // namespace vlt::posix
