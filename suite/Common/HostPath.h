// Paths as the product names them and as the host does. On Windows they are the same.
#pragma once

#include "platform/win32.h"

#include <filesystem>
#include <string_view>

namespace vlt::scan
{

using HostPath = std::filesystem::path;

// A Windows path, or (when it begins with a slash) one of the host.
HostPath ToHost(WStringView path);
HostPath ToHostUtf8(std::string_view path);
HostPath ToHostNarrow(std::string_view path); // in the system code page

// "C:\..." for what lies on drive C:, "Z:\..." for the rest of a Linux host. A name that is not text
// survives the way back.
WString ToWindows(const HostPath& path);

std::string ToUtf8(const HostPath& path);

// One unit without case, as the host's file names are compared.
WCHAR FoldUnit(WCHAR unit);

// For comparing paths that the product gives: without case, with single backslashes, none at the end.
WString FoldPath(WStringView path);

} // namespace vlt::scan
