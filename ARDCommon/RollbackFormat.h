// What the service, the updater and the user interface share about the rollback of patterns: the registry
// record and the names of the files.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// HKEY_LOCAL_MACHINE, 32-bit view.
inline constexpr const WCHAR* kRollbackKey = TEXT("Software\\Veltrano\\Ardentis\\15\\Rollback");

// A virus pattern that was put aside is its file name with this in front.
inline constexpr char kRolledBackPrefix[] = "rb_";
inline constexpr char kVirusPatternStem[] = "ptf$qrv";

// The values of the key.
namespace RollbackValue
{

struct Number { // REG_DWORD; flags are 1 or 0, and any number but 0 is set
    const WCHAR* name;
    DWORD fallback; // of a value that is missing or of another type
};
inline constexpr Number EnableAuto{TEXT("EnableAuto"), 1};
inline constexpr Number EnableNotify{TEXT("EnableNotify"), 1};       // for the user interface
inline constexpr Number FreqNormal{TEXT("FreqNormal"), 2};           // normal stops that prove a pattern good
inline constexpr Number FreqAbnormal{TEXT("FreqAbnormal"), 2};       // abnormal ends in a row that condemn it
inline constexpr Number RollbackFlag{TEXT("RollbackFlag"), 0};       // a new pattern is on probation
inline constexpr Number RtsStatus{TEXT("RTSStatus"), 0};             // set while the service runs
inline constexpr Number NormalCounter{TEXT("NormalCounter"), 0};     // normal stops during the probation
inline constexpr Number AbnormalCounter{TEXT("AbnormalCounter"), 0}; // abnormal ends in a row during it
inline constexpr Number NotifyFlag{TEXT("NotifyFlag"), 0};           // the user is to be told of a rollback

// REG_SZ, empty when missing. The latest rollback: the pattern file's name, the pattern number that was in
// force, the engine's and the program's version.
inline constexpr const WCHAR* RbPatName = TEXT("RB_PatName");
inline constexpr const WCHAR* RbBeforeNo = TEXT("RB_BeforeNo");
inline constexpr const WCHAR* EngVer = TEXT("EngVer");
inline constexpr const WCHAR* PrgVer = TEXT("PrgVer");
// A pattern that was restored after its rollback: the file's name and the pattern number.
inline constexpr const WCHAR* RsPatName = TEXT("RS_PatName");
inline constexpr const WCHAR* RsPatNo = TEXT("RS_PatNo");
// Text and caption for the user interface.
inline constexpr const WCHAR* MoreInfo = TEXT("MoreInfo");
inline constexpr const WCHAR* MoreInfoName = TEXT("MoreInfoName");

} // namespace RollbackValue

} // namespace vlt
