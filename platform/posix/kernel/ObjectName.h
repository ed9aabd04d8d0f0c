// Names of kernel objects and the files that stand for them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vlt::posix
{

inline constexpr std::size_t ObjectNameLimit = 260;

// Takes the namespace prefix off the name of an object and gives the name of its file. False with the
// last error: 206 for more than 260 units, 3 for a backslash that ends no namespace prefix.
bool ObjectFileName(std::u16string_view& name, std::string& file);

} // namespace vlt::posix
