#include "suite/Common/HostPath.h"

#include "platform/Text.h"

namespace vlt::scan
{

HostPath ToHost(WStringView path)
{
    return HostPath(path);
}

HostPath ToHostUtf8(std::string_view path)
{
    return HostPath(ToWide(path, CP_UTF8));
}

HostPath ToHostNarrow(std::string_view path)
{
    return HostPath(ToWide(path));
}

WString ToWindows(const HostPath& path)
{
    return path.native();
}

std::string ToUtf8(const HostPath& path)
{
    const std::wstring& wide = path.native();
    std::string text(wide.size() * 3, '\0');
    const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                                           static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

WCHAR FoldUnit(WCHAR unit)
{
    // With a single unit in the low word the function returns that unit folded.
    return static_cast<WCHAR>(reinterpret_cast<ULONG_PTR>(CharLowerW(reinterpret_cast<LPWSTR>(ULONG_PTR{unit}))));
}

} // namespace vlt::scan
