// What must hold for any bytes that a value file may have.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlt::test
{

// Throws std::logic_error when the reader breaks a promise.
void RegistryValueBody(const std::uint8_t* data, std::size_t size);

} // namespace vlt::test
