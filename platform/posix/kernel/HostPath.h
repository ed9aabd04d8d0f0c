#pragma once

#if __has_include("platform/posix/file/Path.h")
#include "platform/posix/file/Path.h"
#else
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"

#include <algorithm>

namespace vlt::posix
{

inline std::string HostPathFromWindows(std::u16string_view path)
{
    std::string text = Utf8FromUtf16(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    if (text.size() < 2 || text[1] != ':')
        return text;
    const bool system = text[0] == 'Z' || text[0] == 'z';
    return (system ? std::string() : MachineFolder("drives/c")) + text.substr(2);
}

} // namespace vlt::posix
#endif
