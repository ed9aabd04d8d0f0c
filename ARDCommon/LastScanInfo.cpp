#include "ARDCommon/LastScanInfo.h"

#include "ARDCommon/Registry.h"

namespace
{

constexpr WCHAR kKey[] = TEXT("Software\\Veltrano\\Ardentis\\15\\ScanInfo");

void WriteNumber(LPCWSTR name, DWORD value)
{
    vlt::SetRegDword(HKEY_LOCAL_MACHINE, kKey, name, value);
}

void WriteText(LPCWSTR name, const WString& text)
{
    vlt::SetRegString(HKEY_LOCAL_MACHINE, kKey, name, text.c_str());
}

DWORD ReadNumber(LPCWSTR name, DWORD fallback)
{
    return vlt::GetRegDword(HKEY_LOCAL_MACHINE, kKey, name, fallback);
}

WString ReadText(LPCWSTR name)
{
    WCHAR buffer[MAX_PATH] = {}; // of which the reader fills at most half
    vlt::GetRegString(HKEY_LOCAL_MACHINE, kKey, name, TEXT(""), buffer, MAX_PATH);
    return buffer;
}

} // namespace

int CLastScanInfo::SetLastScanInfo(const LastScanRecord* record) const
{
    if (record == nullptr)
        return 0;
    WriteNumber(TEXT("LastScanType"), record->type);
    if (record->type != 0)
        WriteNumber(TEXT("LastScanTime"), record->time);
    WriteText(TEXT("LastScanFile"), record->file);
    return 1;
}

int CLastScanInfo::SetLastDetectInfo(const LastDetectRecord* record) const
{
    if (record == nullptr)
        return 0;
    WriteNumber(TEXT("LastDetectType"), record->type);
    WriteNumber(TEXT("LastDetectTime"), record->time);
    WriteText(TEXT("LastDetectFile"), record->file);
    WriteText(TEXT("LastDetectVirus"), record->threat);
    return 1;
}

int CLastScanInfo::GetLastScanInfo(LastScanRecord* record) const
{
    if (record == nullptr)
        return 0;
    record->type = ReadNumber(TEXT("LastScanType"), kNeverWritten);
    record->time = ReadNumber(TEXT("LastScanTime"), 0);
    record->file = ReadText(TEXT("LastScanFile"));
    return 1;
}

int CLastScanInfo::GetLastDetectInfo(LastDetectRecord* record) const
{
    if (record == nullptr)
        return 0;
    record->type = ReadNumber(TEXT("LastDetectType"), kNeverWritten);
    record->time = ReadNumber(TEXT("LastDetectTime"), 0);
    record->file = ReadText(TEXT("LastDetectFile"));
    record->threat = ReadText(TEXT("LastDetectVirus"));
    return 1;
}

int GetDefaultUserName(char (&name)[256])
{
    constexpr WCHAR key[] = TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon");
    if (!vlt::GetRegStringA(HKEY_LOCAL_MACHINE, key, "DefaultUserName", "", name, sizeof(name)))
        return 0;
    return lstrlenA(name);
}
