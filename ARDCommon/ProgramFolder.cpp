#include "ARDCommon/ProgramFolder.h"

#include "ARDCommon/Registry.h"

namespace
{

constexpr DWORD kShortPathSize = 259;
constexpr DWORD kFolderBytes = 520;

} // namespace

namespace vlt
{

WString ProgramFolder()
{
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        return {};
    const WStringView program(path, length);
    return WString(program.substr(0, program.rfind(TEXT('\\')) + 1));
}

WString ShortProgramFolder()
{
    WString folder = ProgramFolder();
    ShortenPath(folder);
    return folder;
}

WString ApplicationFolder()
{
    WCHAR text[kFolderBytes] = {};
    GetRegString(HKEY_LOCAL_MACHINE, TEXT("Software\\Veltrano\\Ardentis"), TEXT("Application Path"), TEXT(""), text,
                 kFolderBytes);
    WString folder = text;
    if (!folder.empty() && folder.back() != TEXT('\\'))
        folder += TEXT('\\');
    return folder;
}

WString SettingsFile()
{
    return ProgramFolder() + TEXT("ardentis.ini");
}

bool ShortenPath(WString& path)
{
    WCHAR text[kShortPathSize] = {};
    const DWORD length = GetShortPathNameW(path.c_str(), text, kShortPathSize);
    if (length == 0 || length >= kShortPathSize)
        return false;
    path.assign(text, length);
    return true;
}

} // namespace vlt
