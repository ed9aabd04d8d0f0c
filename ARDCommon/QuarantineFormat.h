// The quarantine store on disk: the folder's names and the record file.
//
// The folder holds QUADB.VDB, the kept files under names of their own ("<hex>.tmp"), two scratch files
// and the folder Backup with the copies that the scan library makes before it cleans.
//
// QUADB.VDB is a sequence of 1864-byte records without a header, little-endian, appended at the end.
// Texts are UTF-16, terminated and zero-padded. A record whose type is below 4 is no quarantined file
// and is skipped by readers. Bytes after the last whole record are what is left of a torn append.
//
// Writers hold the named semaphore while they append, rewrite or truncate, for which they wait 10 s at
// most. A rewrite copies to $VB$.$$$, deletes QUADB.VDB and renames the copy: when QUADB.VDB is missing
// and the scratch file is not, a rewrite was cut short there.
#pragma once

#include "platform/win32.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr WCHAR kQuarantineDbName[] = TEXT("QUADB.VDB");
inline constexpr WCHAR kQuarantineScratchName[] = TEXT("$VB$.$$$"); // of rewrites and of restores
inline constexpr WCHAR kQuarantineCopyName[] = TEXT("TEMP$.$$$");   // of the encode retry
inline constexpr WCHAR kQuarantineTempFolder[] = TEXT("Temp");      // decoded, for a scan
inline constexpr WCHAR kQuarantineFilePattern[] = TEXT("*.tmp");
inline constexpr WCHAR kQuarantineBackupFolder[] = TEXT("Backup");
inline constexpr WCHAR kQuarantineBackupPattern[] = TEXT("*.RB?");
inline constexpr WCHAR kQuarantineSemaphore[] = TEXT("Semaphore object of Quarantine"); // count 1
inline constexpr DWORD kQuarantineLockWait = 10000;                                     // ms

struct QuarantineRecord {
    std::uint32_t platform; // the system's platform id, 2 for the NT family
    std::uint32_t type;     // 6 on the NT family, 5 elsewhere; 2 and 3 are backup copies, in listings only
    std::uint32_t status;   // 3 when it was put away
    std::uint32_t patternVersion;
    std::uint8_t engineVersion[8]; // as ASGetEngineInfo gives it
    WCHAR sourceName[256];         // name and extension of the infected file
    WCHAR sourceFolder[260];       // its drive and folder, ends in a backslash
    WCHAR quarantinedName[256];    // of the kept file in the folder; the record's key
    WCHAR date[20];                // "YYYY/MM/DD hh:mm", local
    WCHAR threatName[128];
};
static_assert(sizeof(QuarantineRecord) == 1864);
static_assert(offsetof(QuarantineRecord, platform) == 0);
static_assert(offsetof(QuarantineRecord, type) == 4);
static_assert(offsetof(QuarantineRecord, status) == 8);
static_assert(offsetof(QuarantineRecord, patternVersion) == 12);
static_assert(offsetof(QuarantineRecord, engineVersion) == 16);
static_assert(offsetof(QuarantineRecord, sourceName) == 24);
static_assert(offsetof(QuarantineRecord, sourceFolder) == 536);
static_assert(offsetof(QuarantineRecord, quarantinedName) == 1056);
static_assert(offsetof(QuarantineRecord, date) == 1568);
static_assert(offsetof(QuarantineRecord, threatName) == 1608);
static_assert(std::is_standard_layout_v<QuarantineRecord> && std::is_trivially_copyable_v<QuarantineRecord>);

inline constexpr std::uint32_t kQuarantinedType = 6;
inline constexpr std::uint32_t kQuarantinedTypeOldSystem = 5;
inline constexpr std::uint32_t kFirstQuarantinedType = 4;
inline constexpr std::uint32_t kQuarantinedStatus = 3;
