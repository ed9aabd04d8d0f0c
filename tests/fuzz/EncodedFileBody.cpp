#include "tests/fuzz/Bodies.h"

#include "suite/ArdScan/EncodedFormat.h"
#include "suite/Common/Bytes.h"

#include <cstring>

namespace vlt::test
{
namespace
{

using namespace vlt::scan;

bool Try(std::span<const std::uint8_t> input)
{
    const auto header = ReadEncodedHeader(input);
    if (!header)
        return false;
    const auto written = WriteEncodedHeader(*header);
    Demand(written && written->size() == input.size(), "is written back");
    const auto again = ReadEncodedHeader(*written);
    Demand(again && again->path == header->path && again->facts == header->facts && again->hash == header->hash,
           "and is the same");
    return true;
}

} // namespace

bool EncodedHeaderBody(std::span<const std::uint8_t> input)
{
    if (Try(input))
        return true;
    if (EncodedHeaderSize(input) != input.size() || input.empty())
        return false;
    std::vector<std::uint8_t> fixed(input.begin(), input.end());
    const std::uint32_t checksum = ChecksumWithout(fixed, EncodedChecksumOffset);
    std::memcpy(&fixed[EncodedChecksumOffset], &checksum, sizeof(checksum));
    return Try(fixed);
}

} // namespace vlt::test
