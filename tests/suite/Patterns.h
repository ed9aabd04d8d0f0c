// Pattern files and the suite's libraries for tests.
#pragma once

#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <string>

namespace vlt::test
{

// Compiles the signatures into a pattern file.
void WritePattern(const TempFolder& folder, const char* name, const std::string& signatures);

// The library of the build by its file name.
LibraryHandle LoadBuilt(const char* name);

} // namespace vlt::test
