// What the tests of files share.
#pragma once

#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/platform/Fails.h"
#include "tests/support/Support.h"

namespace vlt::test
{

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

// Sets the last error to what the call left there, also after a success.
inline FileHandle OpenFile(const WString& path, DWORD access, DWORD disposition, DWORD share = 0,
                           DWORD attributes = FILE_ATTRIBUTE_NORMAL)
{
    SetLastError(0xABCD);
    return FileHandle(CreateFileW(path.c_str(), access, share, nullptr, disposition, attributes, nullptr));
}

inline bool Exists(const WString& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace vlt::test
