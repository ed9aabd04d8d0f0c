#include "ARDCommon/GlobalName.h"

namespace
{

// Values of dwPlatformId and dwMajorVersion; the family is named by no header that is still in use.
constexpr DWORD kConsumerFamily = 1;
constexpr DWORD kNt4 = 4;

template <typename Char>
std::basic_string<Char> WithPrefix(const Char* name, std::basic_string_view<Char> prefix, bool namespaces)
{
    const std::basic_string_view<Char> text =
        name ? std::basic_string_view<Char>(name) : std::basic_string_view<Char>();
    std::basic_string<Char> result;
    if (namespaces && !text.starts_with(prefix))
        result = prefix;
    result += text;
    return result;
}

constexpr WStringView kPrefix = TEXT("Global\\");
constexpr std::string_view kPrefixA = "Global\\";

} // namespace

namespace vlt
{

bool HasSessionNamespaces(DWORD platformId, DWORD majorVersion)
{
    return platformId != kConsumerFamily && !(platformId == VER_PLATFORM_WIN32_NT && majorVersion == kNt4);
}

bool HasSessionNamespaces()
{
    static const bool s_namespaces = [] {
        OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof(version);
        return !GetVersionExW(&version) || HasSessionNamespaces(version.dwPlatformId, version.dwMajorVersion);
    }();
    return s_namespaces;
}

WString MakeGlobalName(LPCWSTR name)
{
    return WithPrefix(name, kPrefix, HasSessionNamespaces());
}

std::string MakeGlobalName(LPCSTR name)
{
    return WithPrefix(name, kPrefixA, HasSessionNamespaces());
}

WString MakeGlobalName(LPCWSTR name, DWORD platformId, DWORD majorVersion)
{
    return WithPrefix(name, kPrefix, HasSessionNamespaces(platformId, majorVersion));
}

void GetGlobalName(LPCWSTR name, LPWSTR buffer, int capacity)
{
    lstrcpynW(buffer, MakeGlobalName(name).c_str(), capacity);
}

} // namespace vlt
