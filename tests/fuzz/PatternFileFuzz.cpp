#include "tests/fuzz/PatternFileBody.h"

#include <cstddef>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vlt::test::TryPatternFile({data, size});
    return 0;
}
