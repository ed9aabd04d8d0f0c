#include "tests/fuzz/Bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vlt::test::VLT_FUZZ_BODY({data, size});
    return 0;
}
