#include "ARDCommon/VlFile.h"

#include "platform/Unique.h"

namespace VlFile
{

std::size_t NamePosition(WStringView path)
{
    const std::size_t separator = path.find_last_of(TEXT("\\/:"));
    return separator == path.npos ? 0 : separator + 1;
}

bool IsAbsolute(WStringView path)
{
    return path.starts_with(TEXT('\\')) || path.starts_with(TEXT('/')) || (path.size() > 1 && path[1] == TEXT(':'));
}

bool IsPlainName(WStringView name)
{
    return !name.empty() && NamePosition(name) == 0 && name != TEXT(".") && name != TEXT("..");
}

bool Exists(const WString& file)
{
    return GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool Delete(const WString& file)
{
    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
    return DeleteFileW(file.c_str()) != FALSE;
}

bool DeleteMatching(const WString& folder, LPCWSTR pattern)
{
    const WString prefix = folder + TEXT("\\");
    WIN32_FIND_DATAW found{};
    const vlt::FindHandle find(FindFirstFileW((prefix + pattern).c_str(), &found));
    if (!find)
        return false;
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            Delete(prefix + found.cFileName);
    } while (FindNextFileW(find.Get(), &found));
    return true;
}

} // namespace VlFile
