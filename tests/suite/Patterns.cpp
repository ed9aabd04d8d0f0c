#include "tests/suite/Patterns.h"

#include "platform/Text.h"
#include "tools/ptfc/SignatureText.h"

#include <gtest/gtest.h>

namespace vlt::test
{

void WritePattern(const TempFolder& folder, const char* name, const std::string& signatures)
{
    std::string error;
    const auto file = scan::ParseSignatures(signatures, error);
    ASSERT_TRUE(file) << error;
    const auto bytes = scan::WritePatternFile(*file);
    WriteBytes(folder.HostPath(name), {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
}

LibraryHandle LoadBuilt(const char* name)
{
    const auto path = ProductFolder() / name;
#ifdef _WIN32
    LibraryHandle module(LoadLibraryW(path.c_str()));
#else
    LibraryHandle module(LoadLibraryW((TEXT("Z:") + ToWide(path.string())).c_str()));
#endif
    EXPECT_TRUE(module) << name;
    return module;
}

} // namespace vlt::test
