#include "tests/fuzz/EncodedFileBody.h"

#include <cstddef>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vlt::test::TryEncodedHeader({data, size});
    return 0;
}
