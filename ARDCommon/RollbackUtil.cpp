#include "ARDCommon/RollbackUtil.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/RollbackState.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlIni.h"
#include "ARDCommon/VlUtil.h"
#include "platform/Text.h"
#include "platform/Unique.h"

namespace
{

constexpr char kPatterns[] = "ptf$qrv.*";
constexpr DWORD kLongestVersion = 63;

bool Exists(const std::string& path)
{
    return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string EngineVersion()
{
    std::string version;
    VlIni(vlt::ToNarrow(vlt::SettingsFile()), "Info").ReadString("Engine", version, kLongestVersion);
    return version;
}

std::string ProgramVersion()
{
    WCHAR program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return vlt::ToNarrow(VlUtil::GetModuleVersion(program));
}

// Calls `found` with the name of each file, not folder, that the path with wildcards matches.
template <typename Function>
void ForEachFile(const std::string& path, const Function& found)
{
    WIN32_FIND_DATAA data{};
    const vlt::FindHandle find(FindFirstFileA(path.c_str(), &data));
    if (!find)
        return;
    do {
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            found(std::string(data.cFileName));
    } while (FindNextFileA(find.Get(), &data));
}

} // namespace

const std::string& CRollbackUtil::PatternFolder()
{
    static const std::string& folder = *new std::string(vlt::ToNarrow(vlt::ApplicationFolder()));
    return folder;
}

bool CRollbackUtil::Rollback(const std::string& name, const std::string& number)
{
    VLT_TRACE(50, ">>> CRollbackUtil::Rollback");
    const std::string original = PatternFolder() + name;
    if (!Exists(original)) {
        VLT_TRACE(20, "\toriginal pattern does not exist. file:%s", original);
        return false;
    }
    const std::string aside = PatternFolder() + vlt::kRolledBackPrefix + name;
    if (Exists(aside) && !DeleteFileA(aside.c_str())) {
        VLT_TRACE(20, "\tDeleteFile() failed: 0x%08X, file:%s", GetLastError(), aside);
        return false;
    }
    if (!MoveFileA(original.c_str(), aside.c_str())) {
        VLT_TRACE(20, "\tMoveFile() failed: 0x%08X, file:%s", GetLastError(), original);
        return false;
    }
    SaveRollbackInfo(name, number);
    Purge();
    VLT_TRACE(50, "<<< CRollbackUtil::Rollback");
    return true;
}

bool CRollbackUtil::Restore(std::string& name, std::string& number)
{
    VLT_TRACE(50, ">>> CRollbackUtil::Restore");
    name.clear();
    number.clear();
    std::string recordedName;
    std::string recordedNumber;
    const bool recorded = GetRollbackInfo(recordedName, recordedNumber);
    VLT_TRACE(40, "\tPatternName: %s, PatternVersion: %s", recordedName, recordedNumber);
    if (!recorded) {
        VLT_TRACE(20, "\tno rollbacked pattern");
        ClearRollbackInfo();
        return false;
    }
    const std::string aside = PatternFolder() + vlt::kRolledBackPrefix + recordedName;
    const std::string original = PatternFolder() + recordedName;
    const bool isAside = Exists(aside);
    if (!isAside || Exists(original)) {
        VLT_TRACE(20, isAside ? "\toriginal pattern already exists" : "\trollbacked pattern does not exist");
        ClearRollbackInfo();
        Purge();
        return false;
    }
    if (!MoveFileA(aside.c_str(), original.c_str())) {
        VLT_TRACE(20, "\tMoveFile() failed: 0x%08X", GetLastError());
        return false;
    }
    ClearRollbackInfo();
    name = std::move(recordedName);
    number = std::move(recordedNumber);
    VLT_TRACE(50, "<<< CRollbackUtil::Restore");
    return true;
}

void CRollbackUtil::Purge()
{
    VLT_TRACE(50, ">>> CRollbackUtil::Purge");
    const std::string kept = vlt::kRolledBackPrefix + RollbackState::RbPatName.Get();
    VLT_TRACE(40, "\trollbacked pattern: %s", kept);
    const std::string path = PatternFolder() + vlt::kRolledBackPrefix + kPatterns;
    VLT_TRACE(40, "\tfind path: %s", path);
    ForEachFile(path, [&](const std::string& name) {
        VLT_TRACE(40, "\tfound pattern: %s", name);
        if (name == kept)
            return;
        VLT_TRACE(40, "\tdelete pattern: %s", name);
        if (!DeleteFileA((PatternFolder() + name).c_str()))
            VLT_TRACE(20, "\tDeleteFile() failed: 0x%08X", GetLastError());
    });
    VLT_TRACE(50, "<<< CRollbackUtil::Purge");
}

int CRollbackUtil::CountPatternFile()
{
    VLT_TRACE(50, ">>> CRollbackUtil::CountPatternFile");
    int count = 0;
    ForEachFile(PatternFolder() + kPatterns, [&](const std::string& name) {
        VLT_TRACE(40, "\tfound pattern: %s", name);
        ++count;
    });
    VLT_TRACE(50, "<<< CRollbackUtil::CountPatternFile, (%d)", count);
    return count;
}

void CRollbackUtil::SaveRollbackInfo(const std::string& name, const std::string& number)
{
    RollbackState::RbPatName.Set(name);
    RollbackState::RbBeforeNo.Set(number);
    RollbackState::EngVer.Set(EngineVersion());
    RollbackState::PrgVer.Set(ProgramVersion());
}

void CRollbackUtil::ClearRollbackInfo()
{
    RollbackState::RbPatName.Set("");
    RollbackState::RbBeforeNo.Set("");
    RollbackState::EngVer.Set("");
    RollbackState::PrgVer.Set("");
}

bool CRollbackUtil::GetRollbackInfo(std::string& name, std::string& number)
{
    name = RollbackState::RbPatName.Get();
    number = RollbackState::RbBeforeNo.Get();
    return !name.empty() && !number.empty();
}

bool CRollbackUtil::GetAndClearRestoredInfo(std::string& name, std::string& number)
{
    name = RollbackState::RsPatName.Get();
    number = RollbackState::RsPatNo.Get();
    RollbackState::RsPatName.Set("");
    RollbackState::RsPatNo.Set("");
    return !name.empty() && !number.empty();
}
