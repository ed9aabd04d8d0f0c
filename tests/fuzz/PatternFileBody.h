// The body of the pattern file's fuzz target: input bytes as they are, and with the checksum put right,
// so that the entries behind it are reached too. What is accepted must scan and be written back the same.
#pragma once

#include <cstdint>
#include <span>

namespace vlt::test
{

// True when the input was taken for a pattern file.
bool TryPatternFile(std::span<const std::uint8_t> input);

} // namespace vlt::test
