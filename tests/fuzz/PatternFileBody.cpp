#include "tests/fuzz/Bodies.h"

#include "suite/ArdScan/PatternSet.h"

#include <cstring>

namespace vlt::test
{
namespace
{

using namespace vlt::scan;

bool Try(std::span<const std::uint8_t> input)
{
    auto file = ReadPatternFile(input);
    if (!file)
        return false;
    const auto written = WritePatternFile(*file);
    Demand(written && ReadPatternFile(*written)->patterns.size() == file->patterns.size(), "is written back");
    // A crash that a file asks for is no fault.
    for (BytePattern& pattern : file->patterns)
        pattern.flags = static_cast<std::uint16_t>(pattern.flags & ~SignatureCrash);
    for (HashPattern& pattern : file->hashes)
        pattern.flags = static_cast<std::uint16_t>(pattern.flags & ~SignatureCrash);
    PatternFiles files;
    files.virus = std::make_shared<const PatternFile>(std::move(*file));
    const CPatternSet set(files, 0);
    CScanner scanner;
    std::size_t at = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) {
        const std::size_t count = std::min(buffer.size(), input.size() - at);
        std::memcpy(buffer.data(), input.data() + at, count);
        at += count;
        return static_cast<std::ptrdiff_t>(count);
    };
    Demand(scanner.Scan(set, {}, input.size(), read).outcome != ScanOutcome::Failed, "scans");
    return true;
}

} // namespace

bool PatternFileBody(std::span<const std::uint8_t> input)
{
    if (Try(input))
        return true;
    if (input.size() < PatternHeaderSize)
        return false;
    std::vector<std::uint8_t> fixed(input.begin(), input.end());
    const std::uint32_t checksum = PatternChecksum(fixed);
    std::memcpy(&fixed[PatternChecksumOffset], &checksum, sizeof(checksum));
    return Try(fixed);
}

} // namespace vlt::test
