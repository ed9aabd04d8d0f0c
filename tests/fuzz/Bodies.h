// The bodies of the fuzz targets. Each takes any bytes, in a normal test too, and throws std::logic_error when
// the code under test breaks a promise.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

namespace vlt::test
{

inline void Demand(bool condition, const char* promise)
{
    if (!condition)
        throw std::logic_error(promise);
}

void RegistryValueBody(std::span<const std::uint8_t> file);

// The first bytes choose a section, a key and a value, the rest is the file.
void ProfileBody(std::span<const std::uint8_t> input);

// These two also put the checksum right, so that what is behind it is reached. What is accepted must be written
// back the same, and patterns must scan. True when the input was taken.
bool PatternFileBody(std::span<const std::uint8_t> file);
bool EncodedHeaderBody(std::span<const std::uint8_t> header);

} // namespace vlt::test
