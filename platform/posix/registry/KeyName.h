// File names of keys and values in the registry store.
//
// A key is a folder "k<name>", a value a file "v<name>"; the unnamed value is "v". <name> is the
// case-folded name in UTF-8; control characters, '/', '%', '~', '@' and lone surrogates are written
// %XX or %uXXXX, so that two names share a file name only if they are equal ignoring case. A name
// too long for a file name is cut and ends in '~' and a 128-bit hash of the whole. '@' is left for
// the store's own marks.
#pragma once

#include "platform/win32.h"

namespace vlt::posix::registry
{

constexpr std::size_t MaxValueName = 16383; // characters, as on Windows
constexpr std::size_t MaxKeyName = 255;
constexpr std::size_t MaxFileName = 255; // bytes

struct FileName {
    char text[MaxFileName + 1];
};

// Writes the zero-terminated file name; no allocation.
void MakeFileName(char prefix, WStringView name, FileName& file) noexcept;

// The case-folded name that a file name stands for; cut if it was too long. For a folder that has
// lost the record of its true name.
WString NameOfFile(std::string_view file);

// Whether two names are the same name.
bool SameName(WStringView left, WStringView right) noexcept;

} // namespace vlt::posix::registry
