#include "suite/Common/HostPath.h"

#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"

namespace vlt::scan
{

HostPath ToHost(WStringView path)
{
    if (path.starts_with(u'/'))
        return HostPath(posix::Utf8FromUtf16(path)).lexically_normal();
    return HostPath(posix::HostPathFromWindows(path));
}

HostPath ToHostUtf8(std::string_view path)
{
    return path.starts_with('/') ? HostPath(path).lexically_normal() : ToHost(posix::Utf16FromUtf8(path));
}

HostPath ToHostNarrow(std::string_view path)
{
    return ToHostUtf8(path);
}

WString ToWindows(const HostPath& path)
{
    return path.is_absolute() ? posix::WindowsPathFromHost(path.native()) : WString();
}

std::string ToUtf8(const HostPath& path)
{
    return path.native();
}

WCHAR FoldUnit(WCHAR unit)
{
    return posix::FoldCase(unit);
}

} // namespace vlt::scan
