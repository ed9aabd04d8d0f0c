#include "ARDCommon/LastScanInfo.h"

#include "ARDCommon/Registry.h"
#include "ARDCommon/ScanInfoFormat.h"

namespace
{

using namespace vlt::ScanInfoValue;

void WriteNumber(LPCWSTR name, DWORD value)
{
    vlt::SetRegDword(HKEY_LOCAL_MACHINE, vlt::kScanInfoKey, name, value);
}

void WriteText(LPCWSTR name, const WString& text)
{
    vlt::SetRegString(HKEY_LOCAL_MACHINE, vlt::kScanInfoKey, name, text.c_str());
}

DWORD ReadNumber(LPCWSTR name, DWORD fallback)
{
    return vlt::GetRegDword(HKEY_LOCAL_MACHINE, vlt::kScanInfoKey, name, fallback);
}

WString ReadText(LPCWSTR name)
{
    WCHAR buffer[MAX_PATH] = {}; // of which the reader fills at most half
    vlt::GetRegString(HKEY_LOCAL_MACHINE, vlt::kScanInfoKey, name, TEXT(""), buffer, MAX_PATH);
    return buffer;
}

} // namespace

int CLastScanInfo::SetLastScanInfo(const LastScanRecord* record) const
{
    if (record == nullptr)
        return 0;
    WriteNumber(LastScanType, record->type);
    if (record->type != 0)
        WriteNumber(LastScanTime, record->time);
    WriteText(LastScanFile, record->file);
    return 1;
}

int CLastScanInfo::SetLastDetectInfo(const LastDetectRecord* record) const
{
    if (record == nullptr)
        return 0;
    WriteNumber(LastDetectType, record->type);
    WriteNumber(LastDetectTime, record->time);
    WriteText(LastDetectFile, record->file);
    WriteText(LastDetectVirus, record->threat);
    return 1;
}

int CLastScanInfo::GetLastScanInfo(LastScanRecord* record) const
{
    if (record == nullptr)
        return 0;
    record->type = ReadNumber(LastScanType, kNeverWritten);
    record->time = ReadNumber(LastScanTime, 0);
    record->file = ReadText(LastScanFile);
    return 1;
}

int CLastScanInfo::GetLastDetectInfo(LastDetectRecord* record) const
{
    if (record == nullptr)
        return 0;
    record->type = ReadNumber(LastDetectType, kNeverWritten);
    record->time = ReadNumber(LastDetectTime, 0);
    record->file = ReadText(LastDetectFile);
    record->threat = ReadText(LastDetectVirus);
    return 1;
}

int GetDefaultUserName(char (&name)[256])
{
    constexpr WCHAR key[] = TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon");
    if (!vlt::GetRegStringA(HKEY_LOCAL_MACHINE, key, "DefaultUserName", "", name, sizeof(name)))
        return 0;
    return lstrlenA(name);
}
