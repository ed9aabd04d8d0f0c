#include "realtime/DefaultExtension.h"

#include "ARDCommon/RealTimeSettings.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "realtime/State.h"

#include <memory>
#include <new>

namespace
{

constexpr std::uint32_t kFirstSize = 512;
// No list is this long; a library that says so is broken, and must not make the service take gigabytes.
constexpr std::uint32_t kLargestSize = 1u << 20;

// The list in the system code page. The buffers have a unit more than the library is told of, so that
// text which fills them is still terminated.
bool ReadEngineList(AsHandle handle, std::string& list)
{
    const ASGetEngineDefaultExtListW_t getList = vlt::ScanLibrary().ASGetEngineDefaultExtListW;
    WCHAR first[kFirstSize + 1] = {};
    std::uint32_t size = kFirstSize;
    if (getList(handle, first, &size) == 1) {
        list = vlt::ToNarrow(first);
        return true;
    }
    if (size > kLargestSize)
        return false;
    const std::unique_ptr<WCHAR[]> second(new (std::nothrow) WCHAR[std::size_t{size} + 1]());
    if (second == nullptr || getList(handle, second.get(), &size) != 1)
        return false;
    list = vlt::ToNarrow(second.get());
    return true;
}

} // namespace

std::string RewriteExtensionList(std::string_view list)
{
    std::string result = ".{*";
    for (const char c : list.substr(0, list.find(";{"))) {
        if (c != '"')
            result += c == ';' ? '.' : c;
    }
    if (result.find("WBS") == std::string::npos)
        result += ".WBS";
    return result;
}

int WriteEngineDefaultExtList(AsHandle handle)
{
    std::string list;
    if (!ReadEngineList(handle, list))
        return 0;
    const std::string text = RewriteExtensionList(list);

    vlt::RegKey key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Receive(), nullptr) != ERROR_SUCCESS)
        return 0;
    return RegSetValueExA(key.Get(), "DefaultExtension", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>(text.size() + 1)) == ERROR_SUCCESS;
}
