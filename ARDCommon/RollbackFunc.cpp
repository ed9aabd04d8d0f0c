#include "ARDCommon/RollbackFunc.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/RollbackFormat.h"
#include "ARDCommon/RollbackState.h"
#include "ARDCommon/RollbackUtil.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlIni.h"
#include "engine/KsapiDllLib.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace
{

constexpr int kFewestPatterns = 2;     // the current one and one to fall back to
constexpr std::size_t kLineSize = 520; // with the terminator
constexpr std::size_t kPatternName = 260;

// A counter at its limit stays there.
DWORD Incremented(DWORD counter)
{
    return counter == std::numeric_limits<DWORD>::max() ? counter : counter + 1;
}

LONG ToNumber(const std::string& text)
{
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<LONG>(
        std::clamp<long>(value, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

// The internal version of the newest pattern; 0 when the library or a pattern is missing.
LONG LastPatternVersion()
{
    CKsapiDllLib library;
    if (!library.InitA(vlt::ToNarrow(vlt::ApplicationFolder()).c_str())) {
        VLT_TRACE(20, "Failed cKsapiDllLib.InitA");
        return 0;
    }
    char name[kPatternName] = {};
    const std::string& folder = CRollbackUtil::PatternFolder();
    if (library.KSGetLastPattern(folder.c_str(), vlt::kVirusPatternStem, name) != 0)
        return 0;
    std::int32_t version = 0;
    const std::string path = folder + std::string(vlt::FieldText(name));
    if (const int result = library.KSGetPatternInternalVersion(path.c_str(), &version); result != 0) {
        VLT_TRACE(20, "Failed KSGetPatternInternalVersion(): %d", result);
        return 0;
    }
    return version;
}

int CurrentPatternNumber()
{
    return static_cast<int>(VlIni(vlt::ToNarrow(vlt::SettingsFile()), "Info").ReadUint("Pattern", 0));
}

vlt::FileHandle OpenLog(const std::string& name)
{
    return vlt::FileHandle(CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
}

// The low half of a valid position can look like the failure value; only the error tells.
bool MoveToEnd(HANDLE file)
{
    LONG high = 0;
    SetLastError(NO_ERROR);
    return SetFilePointer(file, 0, &high, FILE_END) != INVALID_SET_FILE_POINTER || GetLastError() == NO_ERROR;
}

} // namespace

void CRollbackFunc::StartCheck() const
{
    RollbackRestored();
    const bool endedAbnormally = RollbackState::RtsStatus.Get();
    if (!RollbackState::RtsStatus.Set(true))
        VLT_TRACE(20, "Rollback : SetRtsStatus(working) fail");
    if (!endedAbnormally || !RollbackState::IsProbation())
        return;
    const DWORD count = Incremented(RollbackState::AbnormalCounter.Get());
    VLT_TRACE(40, "Rollback : Found Abnormal shutdown ! (%d)", count);
    if (count < RollbackState::FreqAbnormal.Get()) {
        RollbackState::AbnormalCounter.Set(count);
        RollbackState::NormalCounter.Set(0);
    } else if (CRollbackUtil::CountPatternFile() >= kFewestPatterns) {
        RollbackCurrent();
    } else {
        VLT_TRACE(40, "Rollback : Skip rollback");
        RollbackState::Reset();
    }
}

// After a failure the counters stay, so the next abnormal start tries again.
void CRollbackFunc::RollbackCurrent() const
{
    VLT_TRACE(40, "Rollback : Start rollback");
    const int pattern = CurrentPatternNumber();
    const std::string number = vlt::Format("%d", pattern);
    if (!CRollbackUtil::Rollback(vlt::Format("%s.%03d", vlt::kVirusPatternStem, pattern / 100 % 1000), number))
        return;
    SYSTEMTIME now{};
    GetLocalTime(&now);
    WriterRollbackLog(now, number);
    RollbackState::NotifyFlag.Set(true);
    RollbackState::Reset();
}

// A restored pattern that is still the newest is put aside once more: the updater has brought nothing
// better yet.
void CRollbackFunc::RollbackRestored() const
{
    std::string name;
    std::string number;
    if (!CRollbackUtil::GetAndClearRestoredInfo(name, number))
        return;
    const LONG restored = ToNumber(number);
    if (restored == 0) {
        VLT_TRACE(20, "restored version invalid: %s", number);
        return;
    }
    const LONG last = LastPatternVersion();
    VLT_TRACE(40, "restored version: %ld, last version: %ld", restored, last);
    if (restored >= last) {
        VLT_TRACE(40, "re-rollback restored pattern");
        CRollbackUtil::Rollback(name, number);
    }
}

bool CRollbackFunc::StopNotice() const
{
    if (!RollbackState::RtsStatus.Set(false))
        VLT_TRACE(20, "Rollback : SetRtsStatus(stopped) fail");
    if (!RollbackState::IsProbation())
        return false;
    const DWORD count = Incremented(RollbackState::NormalCounter.Get());
    if (count >= RollbackState::FreqNormal.Get())
        return RollbackState::Reset();
    const bool counted = RollbackState::NormalCounter.Set(count);
    return RollbackState::AbnormalCounter.Set(0) && counted;
}

bool CRollbackFunc::WriterRollbackLog(const SYSTEMTIME& localTime, const std::string& number) const
{
    VLT_TRACE(50, "Enter CRollbackFunc::WriterRollbackLog()...");
    const std::string folder = vlt::ToNarrow(vlt::ApplicationFolder()) + "Log\\";
    CreateDirectoryA(folder.c_str(), nullptr);
    const int year = localTime.wYear;
    const int month = localTime.wMonth;
    const int day = localTime.wDay;
    const vlt::FileHandle file = OpenLog(vlt::Format("%s%04d%02d%02d.%s", folder, year, month, day, "UPG"));
    if (!file) {
        VLT_TRACE(20, "*** CRollbackFunc::WriterRollbackLog() - Failed to CreateFile(). LastError[0x%08x]",
                  GetLastError());
        return false;
    }
    if (!MoveToEnd(file.Get())) {
        VLT_TRACE(20, "*** CRollbackFunc::WriterRollbackLog() - Failed to SetFilePointer(). LastError[0x%08x]",
                  GetLastError());
        return false;
    }
    char line[kLineSize];
    const std::size_t size = vlt::FormatTo(line, kLineSize, "%04d%02d%02d|%02d%02d|%d|%d|%s\r\n", year, month, day,
                                           int{localTime.wHour}, int{localTime.wMinute}, 2, 3, number);
    if (size > std::numeric_limits<DWORD>::max()) {
        VLT_TRACE(20, "*** CRollbackFUnc::WriterRollbackLog - Failed szLogData size (%I64d)", size);
        return false;
    }
    DWORD written = 0;
    if (!WriteFile(file.Get(), line, static_cast<DWORD>(size), &written, nullptr)) {
        VLT_TRACE(20, "*** CRollbackFunc::WriterRollbackLog() - Failed to WriteFile(). LastError[0x%08x]",
                  GetLastError());
        return false;
    }
    FlushFileBuffers(file.Get());
    if (written != size) // a line that is short is better than none
        VLT_TRACE(20, "*** CRollbackFunc::WriterRollbackLog() - dwWriteSize was invalid size.");
    VLT_TRACE(50, "Exit CRollbackFunc::WriterRollbackLog()...");
    return true;
}
