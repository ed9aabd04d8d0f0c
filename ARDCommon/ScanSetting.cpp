#include "ARDCommon/ScanSetting.h"

#include "ARDCommon/Registry.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Format.h"
#include "platform/Text.h"

#include <vector>

namespace
{

constexpr const WCHAR* kProfileListKey = TEXT("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\%s");
constexpr const char* kProfileStartFolder = "\\Application Data\\Microsoft\\Excel\\Xlstart\\";
constexpr const char* kInstallRootValue = "path";
constexpr const char* kOtherStartFolderValue = "AltStartup";

// Where one version keeps its folders. The user's key is formatted with the name of a hive.
struct ExcelVersion {
    const WCHAR* installKey;
    const char* startFolder; // below the install root
    const WCHAR* userKey;
    bool usesProfile;     // has a start-up folder in the user's profile as well
    bool usesDefaultHive; // an account that never ran it has the settings of ".DEFAULT"
};

constexpr ExcelVersion kExcelVersions[] = {
    {TEXT("SOFTWARE\\Microsoft\\Office\\11.0\\Excel\\InstallRoot"), "XLStart\\",
     TEXT("%s\\Software\\Microsoft\\Office\\11.0\\Excel\\Options"), true, false},
    {TEXT("SOFTWARE\\Microsoft\\Office\\9.0\\Excel\\InstallRoot"), "XLStart\\",
     TEXT("%s\\Software\\Microsoft\\Office\\9.0\\Excel\\Options"), true, false},
    {TEXT("SOFTWARE\\Microsoft\\Office\\10.0\\Excel\\InstallRoot"), "XLStart\\",
     TEXT("%s\\Software\\Microsoft\\Office\\10.0\\Excel\\Options"), true, false},
    {TEXT("SOFTWARE\\Microsoft\\Office\\8.0\\Excel\\InstallRoot"), "\\XLStart\\",
     TEXT("%s\\Software\\Microsoft\\Office\\8.0\\Excel\\Microsoft Excel"), false, true},
    {TEXT("SOFTWARE\\Microsoft\\Microsoft Office\\95\\InstallRoot"), "\\Excel\\XLStart\\",
     TEXT("%s\\Software\\Microsoft\\Excel\\7.0\\Microsoft Excel"), false, false},
};

std::string CurrentUserName()
{
    char name[257] = {};
    DWORD size = 256;
    return GetUserNameA(name, &size) && name[0] != 0 ? name : "Default User";
}

std::string ResolveUserName(LPCSTR user)
{
    if (user != nullptr && lstrcmpiA(user, "service") != 0)
        return user;
    WString setting;
    if (vlt::GetScanSettingText(vlt::SettingId::UserName, setting) && !setting.empty()) {
        const std::string name = vlt::ToNarrow(setting);
        VLT_TRACE(40, "***   Got user name from registry: %s", name);
        return name;
    }
    return CurrentUserName();
}

// The textual SID, which is the name of the user's hive; empty when the account is not known.
WString UserHive(const std::string& user)
{
    alignas(8) BYTE sid[256] = {};
    char domain[256] = {};
    DWORD sidSize = sizeof(sid);
    DWORD domainSize = sizeof(domain);
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountNameA(nullptr, user.c_str(), sid, &sidSize, domain, &domainSize, &use) || !IsValidSid(sid))
        return {};

    ULONGLONG authority = 0;
    for (const BYTE byte : GetSidIdentifierAuthority(sid)->Value)
        authority = authority << 8 | byte;
    WString text = vlt::Format(TEXT("S-%lu-"), DWORD{sid[0]}); // a SID begins with its revision
    // Authorities of more than 32 bits are written in hexadecimal.
    text += vlt::Format(authority >> 32 != 0 ? TEXT("0x%012I64x") : TEXT("%I64u"), authority);
    for (DWORD i = 0; i < *GetSidSubAuthorityCount(sid); ++i)
        text += vlt::Format(TEXT("-%lu"), *GetSidSubAuthority(sid, i));
    return text;
}

// Profile paths are stored with variables, "%SystemDrive%\Users\...". Unknown ones stay as they are.
WString ExpandVariables(const WString& text)
{
    WString result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text[at] == TEXT('%') ? text.find(TEXT('%'), at + 1) : WString::npos;
        WCHAR value[MAX_PATH] = {};
        const DWORD length = end == WString::npos
                                 ? 0
                                 : GetEnvironmentVariableW(text.substr(at + 1, end - at - 1).c_str(), value, MAX_PATH);
        if (length > 0 && length < MAX_PATH) {
            result.append(value, length);
            at = end + 1;
        } else {
            result += text[at++];
        }
    }
    return result;
}

std::string ProfileFolder(const WString& hive)
{
    std::vector<BYTE> data;
    if (hive.empty() || !vlt::GetRegBytes(HKEY_LOCAL_MACHINE, vlt::Format(kProfileListKey, hive).c_str(),
                                          TEXT("ProfileImagePath"), data))
        return {};
    WString path;
    for (std::size_t i = 0; i + 1 < data.size() && (data[i] != 0 || data[i + 1] != 0); i += 2)
        path += static_cast<WCHAR>(data[i] | data[i + 1] << 8);
    return vlt::ToNarrow(ExpandVariables(path));
}

bool ReadFolderValue(HKEY root, const WCHAR* key, const char* name, std::string& folder)
{
    char text[MAX_PATH] = {};
    if (!vlt::GetRegStringA(root, key, name, "", text, sizeof(text)) || text[0] == 0)
        return false;
    folder = text;
    return true;
}

std::string Join(std::string folder, const char* rest)
{
    if (!folder.empty() && folder.back() == '\\')
        folder.pop_back();
    if (*rest != '\\')
        folder += '\\';
    return folder + rest;
}

class FolderCollector
{
public:
    explicit FolderCollector(std::string& folders) : m_folders(folders) {}

    void Add(const std::string& folder)
    {
        ++m_number;
        const DWORD attributes = GetFileAttributesA(folder.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            VLT_TRACE(20, "***   [%d] Cannot find a directory: %s (%lu)", m_number, folder.c_str(), GetLastError());
            return;
        }
        // The separator cannot be in a file's name, so a match is a whole entry.
        if (("*" + m_folders).find("*" + folder + "*") != std::string::npos)
            return;
        m_folders += folder + "*";
        VLT_TRACE(40, "***   [%d] Set a path: %s", m_number, folder.c_str());
    }

private:
    std::string& m_folders;
    int m_number = 0;
};

void CollectVersion(const ExcelVersion& version, const WString& hive, const std::string& profile,
                    FolderCollector& collector)
{
    std::string folder;
    if (ReadFolderValue(HKEY_LOCAL_MACHINE, version.installKey, kInstallRootValue, folder))
        collector.Add(Join(folder, version.startFolder));

    WString key = vlt::Format(version.userKey, hive);
    if (hive.empty() || !vlt::RegKeyExists(HKEY_USERS, key.c_str())) {
        if (!version.usesDefaultHive)
            return;
        key = vlt::Format(version.userKey, TEXT(".DEFAULT"));
    } else if (version.usesProfile && !profile.empty()) {
        const std::string start = Join(profile, kProfileStartFolder);
        // Every version offers this folder but few users have it, so its absence is no failure.
        if (GetFileAttributesA(start.c_str()) != INVALID_FILE_ATTRIBUTES)
            collector.Add(start);
    }
    if (ReadFolderValue(HKEY_USERS, key.c_str(), kOtherStartFolderValue, folder))
        collector.Add(Join(folder, "\\"));
}

} // namespace

namespace vlt
{

DWORD GetScanSetting(SettingId id)
{
    const SettingInfo& setting = Setting(id);
    return GetRegDword(HKEY_LOCAL_MACHINE, kRealTimeScanKey, setting.name, setting.number);
}

bool GetScanSettingText(SettingId id, WString& text)
{
    const SettingInfo& setting = Setting(id);
    // The reader compares the value's bytes with this count, which is also the buffer's characters.
    WString buffer(setting.bytes, 0);
    const bool found =
        GetRegString(HKEY_LOCAL_MACHINE, kRealTimeScanKey, setting.name, setting.text, buffer.data(), setting.bytes);
    text = buffer.c_str();
    return found;
}

} // namespace vlt

void GetXLStartFolderList(LPCSTR user, std::string& folders)
{
    VLT_TRACE(50, "***  Entered GetXLStartFolderList()");
    folders.clear();
    const WString hive = UserHive(ResolveUserName(user));
    const std::string profile = ProfileFolder(hive);
    FolderCollector collector(folders);
    for (const ExcelVersion& version : kExcelVersions)
        CollectVersion(version, hive, profile, collector);
}
