#include "ARDCommon/DebugLogPath.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"

#include <algorithm>

namespace
{

constexpr DWORD kPathSize = 259;

constexpr WCHAR LowerAscii(WCHAR c)
{
    return c >= TEXT('A') && c <= TEXT('Z') ? static_cast<WCHAR>(c + 0x20) : c;
}

bool IsSamePath(WStringView left, WStringView right)
{
    return std::ranges::equal(left, right, {}, LowerAscii, LowerAscii);
}

bool Shorten(WString& path)
{
    if (vlt::ShortenPath(path))
        return true;
    VLT_TRACE(20, "Error: GetShortPathName ( %d )", GetLastError());
    return false;
}

} // namespace

bool IsDefaultDebugLogPath(WString* path)
{
    WString standard = vlt::ProgramFolder();
    if (standard.empty()) {
        VLT_TRACE(20, "Error: GetAppPath");
        return false;
    }
    standard = (standard + TEXT("Log\\ard.log")).substr(0, kPathSize);
    if (!Shorten(standard))
        return false;

    WCHAR text[kPathSize] = {};
    if (GetPrivateProfileStringW(TEXT("debug"), TEXT("log_path"), TEXT(""), text, kPathSize,
                                 vlt::SettingsFile().c_str()) == 0) {
        VLT_TRACE(20, "Error: GetPrivateProfileStringW (%d)", GetLastError());
        return false;
    }
    WString configured = text;
    if (configured.empty()) {
        VLT_TRACE(20, "Error: cannot get [debug]log_path");
        return false;
    }
    if (!Shorten(configured))
        return false;
    if (!IsSamePath(standard, configured)) {
        VLT_TRACE(20, "not match (%S)", configured);
        return false;
    }
    if (path != nullptr)
        *path = configured;
    return true;
}
