// What the layer reads of a library or program without loading it (ELF, 64-bit, x86-64).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vlt::posix
{

// Whether the file is a shared object for this machine whose segments all lie within it: the
// loader of the system maps them unchecked, and dies on a file that was cut short.
bool IsLoadableLibrary(const std::string& hostPath);

// The contents of a section; nothing when the file is no ELF file or has no section of that name.
std::optional<std::string> ReadElfSection(const std::string& hostPath, std::string_view name);

} // namespace vlt::posix
