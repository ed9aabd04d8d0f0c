// The body of the encoded file's fuzz target: input bytes as they are, and with the header's checksum put
// right, so that what is behind it is reached too. An accepted header must be written back the same.
#pragma once

#include <cstdint>
#include <span>

namespace vlt::test
{

// True when the input was taken for the header of an encoded file.
bool TryEncodedHeader(std::span<const std::uint8_t> input);

} // namespace vlt::test
