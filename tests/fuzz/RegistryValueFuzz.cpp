#include "tests/fuzz/RegistryValueBody.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    vlt::test::RegistryValueBody(data, size);
    return 0;
}
