#include "tests/fuzz/ProfileBody.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vlt::test::ProfileBody(data, size);
    return 0;
}
