// What must hold for any bytes that a private profile file may have.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlt::test
{

// The first bytes choose a section, a key and a value, the rest is the file. Throws std::logic_error
// when a promise is broken.
void ProfileBody(const std::uint8_t* data, std::size_t size);

} // namespace vlt::test
