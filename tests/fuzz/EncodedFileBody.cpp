#include "tests/fuzz/EncodedFileBody.h"

#include "suite/ArdScan/EncodedFormat.h"
#include "suite/Common/Bytes.h"

#include <cstdlib>
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
    if (!written || written->size() != input.size())
        std::abort();
    const auto again = ReadEncodedHeader(*written);
    if (!again || again->path != header->path || again->facts != header->facts || again->hash != header->hash)
        std::abort();
    return true;
}

} // namespace

bool TryEncodedHeader(std::span<const std::uint8_t> input)
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
