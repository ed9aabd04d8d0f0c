#include "tools/vlctl/Machine.h"

#include "platform/Format.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/ServiceManager.h"

#include <array>
#include <vector>

namespace vlt::ctl
{
namespace
{

constexpr WCHAR SuiteKey[] = TEXT("Software\\Veltrano\\Ardentis");
constexpr WCHAR FolderValue[] = TEXT("Application Path");
constexpr DWORD LongestValue = 1 << 16; // bytes
constexpr DWORD LongestIniText = 2048;  // characters

std::optional<std::vector<BYTE>> MachineBytes(const WCHAR* key, const WCHAR* name, DWORD type)
{
    RegKey open;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ | KEY_WOW64_32KEY, open.Receive()) != 0)
        return std::nullopt;
    std::vector<BYTE> data(LongestValue);
    DWORD found = REG_NONE, size = LongestValue;
    if (RegQueryValueExW(open.Get(), name, nullptr, &found, data.data(), &size) != 0 || found != type)
        return std::nullopt;
    data.resize(size);
    return data;
}

} // namespace

std::optional<DWORD> MachineNumber(const WCHAR* key, const WCHAR* name)
{
    const auto data = MachineBytes(key, name, REG_DWORD);
    if (!data || data->size() != sizeof(DWORD))
        return std::nullopt;
    DWORD number = 0;
    std::copy(data->begin(), data->end(), reinterpret_cast<BYTE*>(&number));
    return number;
}

std::optional<WString> MachineText(const WCHAR* key, const WCHAR* name)
{
    const auto data = MachineBytes(key, name, REG_SZ);
    if (!data)
        return std::nullopt;
    WString text(data->size() / sizeof(WCHAR), 0);
    std::copy_n(data->begin(), text.size() * sizeof(WCHAR), reinterpret_cast<BYTE*>(text.data()));
    return WString(text.c_str());
}

WString SuiteFolder()
{
    WString folder = MachineText(SuiteKey, FolderValue).value_or(WString());
    if (!folder.empty() && folder.back() != '\\')
        folder += '\\';
    return folder;
}

WString ServiceFolder()
{
    return IsServiceInstalled() ? FolderOf(InstalledProgram()) : WString();
}

WString IniText(const WString& folder, const WCHAR* section, const WCHAR* name)
{
    std::array<WCHAR, LongestIniText> text{};
    GetPrivateProfileStringW(section, name, TEXT(""), text.data(), LongestIniText,
                             (folder + TEXT("ardentis.ini")).c_str());
    return text.data();
}

std::optional<std::string> FileBytes(const WString& path, std::size_t longest)
{
    const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size) || static_cast<ULONGLONG>(size.QuadPart) > longest)
        return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD got = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr))
        return std::nullopt;
    bytes.resize(got);
    return bytes;
}

std::string UtcText(std::uint32_t seconds)
{
    constexpr ULONGLONG secondsTo1970 = 11644473600ull, ticksPerSecond = 10000000ull;
    const ULONGLONG ticks = (seconds + secondsTo1970) * ticksPerSecond;
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&time, &parts);
    return Format("%04d-%02d-%02dT%02d:%02d:%02dZ", parts.wYear, parts.wMonth, parts.wDay, parts.wHour, parts.wMinute,
                  parts.wSecond);
}

} // namespace vlt::ctl
