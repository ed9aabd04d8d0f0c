// The binary interface of the scan library, ArdScan.dll: every record, callback and entry point that
// crosses the boundary. Shared by the service, the reference engine and the tests.
//
// Conventions. Text is UTF-16 (W exports) or the system code page (the narrow exports), terminated
// within its field. Records are little-endian and zeroed by the caller before they are filled.
// Numbers are 32-bit. The scan handle of ASInitScanW is the first argument of every other call; every
// entry point may be called from any thread. A record, and what it points to, belongs to the caller
// and lives only for the call: the library copies what it keeps. Callbacks arrive on the library's own
// threads, several at once; the record they are given lives until they return.
#pragma once

#include "platform/win32.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

using AsHandle = void*;

// ---------------------------------------------------------------------------------------------
// Codes

// Actions, in the configuration record (what to do) and in the detection record (what was done).
//
// AS_ACTION_QUARANTINE on access: the library encodes the file (as ASEncodeFileW) into a new file of its own naming in
// "Quarantine\" below the application folder, never "*.tmp", removes the original when the encoded file is whole and
// on disk, and refuses the access. encodedPath names the encoded file, which from then on is the only copy; the caller
// moves it into the quarantine store. When anything fails the encoded file goes, the original stays, the result is
// AS_RESULT_FAILED, the second action is tried, and the access is refused all the same. An access to a file that
// another one is just having put away is reported with AS_ACTION_DENY and no encodedPath.
enum AsAction : std::uint32_t {
    AS_ACTION_NONE = 0,       // nothing was done or is to be done
    AS_ACTION_PASS = 1,       // let the access go on, report only
    AS_ACTION_QUARANTINE = 2, // encode the file for the quarantine store; the path is in encodedPath
    AS_ACTION_CLEAN = 3,      // remove the matched pattern from the file
    AS_ACTION_DELETE = 4,     // delete the file
    AS_ACTION_RENAME = 5,     // give the file the configured extension
    AS_ACTION_MOVE = 6,       // move the file to the configured folder
    AS_ACTION_DENY = 7,       // refuse the access, leave the file where it is
};

// Result of an action in a detection record.
enum AsActionResult : std::uint32_t {
    AS_RESULT_NONE = 0,   // the action was not tried
    AS_RESULT_DONE = 1,   // the action succeeded
    AS_RESULT_FAILED = 2, // the action was tried and failed
};

// Bits of AsConfigRecord::directionMask: which accesses are scanned.
enum AsDirection : std::uint32_t {
    AS_DIRECTION_OPEN = 1,    // opened for reading
    AS_DIRECTION_WRITE = 2,   // closed after writing
    AS_DIRECTION_RENAME = 4,  // moved into a guarded folder
    AS_DIRECTION_EXECUTE = 8, // opened for execution
};

// Bits of AsConfigRecord::spywareMask, the kinds of spyware threats that are reported.
enum AsSpywareKind : std::uint32_t {
    AS_SPYWARE_ADWARE = 4,
    AS_SPYWARE_DIALER = 8,
    AS_SPYWARE_TRACKER = 64,
};

// AsInitRecord::reason after a failed ASInitScanW.
enum AsInitReason : std::uint32_t {
    AS_REASON_NONE = 0,
    AS_REASON_ARGUMENT = 1,   // a record or an argument is not acceptable
    AS_REASON_RESOURCE = 2,   // memory, threads or descriptors ran out
    AS_REASON_INTERNAL = 3,   // anything else
    AS_REASON_NO_PATTERN = 4, // no usable pattern or engine data: versions are to be shown as errors
};

// ASReloadPatternW, second argument.
enum AsReloadKind : std::uint32_t {
    AS_RELOAD_VIRUS = 1,
    AS_RELOAD_SPYWARE = 2,
    AS_RELOAD_PACKER = 4,
    AS_RELOAD_ALL = 7,
};

// ASGetLastError. 0 is success; the others are the library's own.
enum AsError : std::int32_t {
    AS_OK = 0,
    AS_E_HANDLE = 1,        // not a scan handle
    AS_E_ARGUMENT = 2,      // a null or unusable argument
    AS_E_PATTERN = 3,       // a pattern file is missing, unreadable or broken
    AS_E_MONITOR = 4,       // on-access monitoring could not be started
    AS_E_FILE = 5,          // a file could not be read or written, or changed meanwhile
    AS_E_BUFFER = 6,        // the caller's buffer is too small
    AS_E_NOT_SUPPORTED = 7, // the entry point does nothing in this library
    AS_E_STATE = 8,         // not possible now, such as starting before a configuration
    AS_E_NO_MEMORY = 9,
    AS_E_FORMAT = 10, // not an encoded file, or a damaged one
};

// ---------------------------------------------------------------------------------------------
// Records

// Argument of ASInitScanW.
struct AsInitRecord {
    std::uint64_t reserved0;
    std::uint32_t processId; // of the caller
    std::uint32_t reserved12[3];
    const WCHAR* appFolder;     // ends in a backslash; pattern files and ArdScan.ini are looked for here
    const WCHAR* patternFolder; // the same folder
    std::uint32_t version;      // AS_INIT_VERSION
    std::uint32_t reason;       // AsInitReason, set by the library when it fails
};
constexpr std::uint32_t AS_INIT_VERSION = 6;
static_assert(sizeof(AsInitRecord) == 48);
static_assert(offsetof(AsInitRecord, processId) == 8);
static_assert(offsetof(AsInitRecord, reserved12) == 12);
static_assert(offsetof(AsInitRecord, appFolder) == 24);
static_assert(offsetof(AsInitRecord, patternFolder) == 32);
static_assert(offsetof(AsInitRecord, version) == 40);
static_assert(offsetof(AsInitRecord, reason) == 44);
static_assert(std::is_standard_layout_v<AsInitRecord> && std::is_trivially_copyable_v<AsInitRecord>);

// One detection, given to the detection callback. Text fields hold 131 or 259 units and a NUL.
struct AsDetectionRecord {
    WCHAR threatName[132];
    std::uint32_t firstAction;  // AsAction
    std::uint32_t firstResult;  // AsActionResult
    std::uint32_t secondAction; // AsAction, tried when the first failed
    std::uint32_t secondResult; // AsActionResult
    std::uint32_t processId;    // of the process whose access was caught; 0 when not known
    std::uint32_t direction;    // one AsDirection bit
    WCHAR infectedPath[260];
    WCHAR encodedPath[260];   // the encoded copy, when an action was AS_ACTION_QUARANTINE
    WCHAR secondPath[260];    // when set, the name under which the file is to be recorded (a member of an archive)
    std::uint32_t threatKind; // 0 virus, else one AsSpywareKind bit
    std::uint32_t noLog;      // non-zero: not to be written to the virus log
    std::uint32_t denied;     // 1 when the access was refused, 0 when it had already happened
};
static_assert(sizeof(AsDetectionRecord) == 1860);
static_assert(offsetof(AsDetectionRecord, threatName) == 0);
static_assert(offsetof(AsDetectionRecord, firstAction) == 264);
static_assert(offsetof(AsDetectionRecord, firstResult) == 268);
static_assert(offsetof(AsDetectionRecord, secondAction) == 272);
static_assert(offsetof(AsDetectionRecord, secondResult) == 276);
static_assert(offsetof(AsDetectionRecord, processId) == 280);
static_assert(offsetof(AsDetectionRecord, direction) == 284);
static_assert(offsetof(AsDetectionRecord, infectedPath) == 288);
static_assert(offsetof(AsDetectionRecord, encodedPath) == 808);
static_assert(offsetof(AsDetectionRecord, secondPath) == 1328);
static_assert(offsetof(AsDetectionRecord, threatKind) == 1848);
static_assert(offsetof(AsDetectionRecord, noLog) == 1852);
static_assert(offsetof(AsDetectionRecord, denied) == 1856);
static_assert(std::is_standard_layout_v<AsDetectionRecord> && std::is_trivially_copyable_v<AsDetectionRecord>);

using AsDetectionCallback = void(CALLBACK*)(void* context, const AsDetectionRecord* record);
using AsLastScanCallback = void(CALLBACK*)(const WCHAR* fileName, void* context);

// Argument of ASSetConfigW for on-access scanning.
struct AsConfigRecord {
    std::uint32_t firstAction;  // AsAction
    std::uint32_t secondAction; // AsAction, when the first fails
    WCHAR moveFolder[260];
    WCHAR moveFolder2nd[260];
    WCHAR renameExtension[260];
    WCHAR renameExtension2nd[260];
    std::uint32_t cleanBackup; // keep a backup before cleaning
    WCHAR backupFolder[260];
    std::uint32_t zipScan;         // 0: archives are not opened
    const WCHAR* protectedFolders; // multi-string ended by two NULs, or null
    std::uint32_t genericMacro;
    std::uint32_t zipClean;
    std::uint32_t extractSizeLimit;  // bytes; 0xFFFFFFFF is no limit. Larger files are not scanned
    std::uint32_t extractCountLimit; // 0 is no limit
    std::uint32_t encodedBackup;     // AS_ENCODED_BACKUP or 0
    std::uint32_t activeAction;
    std::uint32_t activeScan;
    std::uint32_t spywareMask; // AsSpywareKind bits
    std::uint32_t scriptTrap;
    std::uint32_t packTrap;
    std::uint32_t directionMask; // AsDirection bits
    // "*", or extensions each with its dot (".EXE.COM"). 648 units fill the field with no NUL.
    WCHAR extensionList[648];
    std::uint32_t fixed3964; // 1: scan on open, close and rename are one monitor
    std::uint32_t fixed3968; // 1
    std::uint32_t fixed3972; // 1
    std::uint32_t monitorNetwork;
    std::uint32_t fixed3980;             // 1
    AsLastScanCallback lastScanCallback; // may be null
    void* lastScanContext;
    AsDetectionCallback detectionCallback; // virus detections; may be null
    void* detectionContext;
    AsDetectionCallback spywareCallback; // spyware detections; may be null
    void* spywareContext;
};
constexpr std::uint32_t AS_ENCODED_BACKUP = 6;
static_assert(sizeof(AsConfigRecord) == 4032);
static_assert(offsetof(AsConfigRecord, firstAction) == 0);
static_assert(offsetof(AsConfigRecord, secondAction) == 4);
static_assert(offsetof(AsConfigRecord, moveFolder) == 8);
static_assert(offsetof(AsConfigRecord, moveFolder2nd) == 528);
static_assert(offsetof(AsConfigRecord, renameExtension) == 1048);
static_assert(offsetof(AsConfigRecord, renameExtension2nd) == 1568);
static_assert(offsetof(AsConfigRecord, cleanBackup) == 2088);
static_assert(offsetof(AsConfigRecord, backupFolder) == 2092);
static_assert(offsetof(AsConfigRecord, zipScan) == 2612);
static_assert(offsetof(AsConfigRecord, protectedFolders) == 2616);
static_assert(offsetof(AsConfigRecord, genericMacro) == 2624);
static_assert(offsetof(AsConfigRecord, zipClean) == 2628);
static_assert(offsetof(AsConfigRecord, extractSizeLimit) == 2632);
static_assert(offsetof(AsConfigRecord, extractCountLimit) == 2636);
static_assert(offsetof(AsConfigRecord, encodedBackup) == 2640);
static_assert(offsetof(AsConfigRecord, activeAction) == 2644);
static_assert(offsetof(AsConfigRecord, activeScan) == 2648);
static_assert(offsetof(AsConfigRecord, spywareMask) == 2652);
static_assert(offsetof(AsConfigRecord, scriptTrap) == 2656);
static_assert(offsetof(AsConfigRecord, packTrap) == 2660);
static_assert(offsetof(AsConfigRecord, directionMask) == 2664);
static_assert(offsetof(AsConfigRecord, extensionList) == 2668);
static_assert(offsetof(AsConfigRecord, fixed3964) == 3964);
static_assert(offsetof(AsConfigRecord, fixed3968) == 3968);
static_assert(offsetof(AsConfigRecord, fixed3972) == 3972);
static_assert(offsetof(AsConfigRecord, monitorNetwork) == 3976);
static_assert(offsetof(AsConfigRecord, fixed3980) == 3980);
static_assert(offsetof(AsConfigRecord, lastScanCallback) == 3984);
static_assert(offsetof(AsConfigRecord, lastScanContext) == 3992);
static_assert(offsetof(AsConfigRecord, detectionCallback) == 4000);
static_assert(offsetof(AsConfigRecord, detectionContext) == 4008);
static_assert(offsetof(AsConfigRecord, spywareCallback) == 4016);
static_assert(offsetof(AsConfigRecord, spywareContext) == 4024);
static_assert(std::is_standard_layout_v<AsConfigRecord> && std::is_trivially_copyable_v<AsConfigRecord>);

// Result of a scan on demand, one for the file itself and before it one for each member in which
// something was found. The record for the file itself has an empty innerName and comes last.
struct AsScanResultRecord {
    WCHAR threatName[132];
    std::uint32_t status; // 1 cleaned or cleanable, 2 the threat remains
    WCHAR path[260];
    WCHAR innerName[260];
};
static_assert(sizeof(AsScanResultRecord) == 1308);
static_assert(offsetof(AsScanResultRecord, status) == 264);
static_assert(offsetof(AsScanResultRecord, path) == 268);
static_assert(offsetof(AsScanResultRecord, innerName) == 788);
static_assert(std::is_standard_layout_v<AsScanResultRecord> && std::is_trivially_copyable_v<AsScanResultRecord>);

using AsScanResultCallback = void(CALLBACK*)(void* context, const AsScanResultRecord* record);

// Argument of ASSetConfigW for scans on demand of the quarantine store. The library tells the two
// configurations apart by the handle: a handle that ASInitScanW opened with on-access 0 takes this one.
struct AsQuarantineConfigRecord {
    std::uint32_t action; // 3 for the store's operations
    WCHAR backupFolder[260];
    WCHAR renameExtension[16];
    WCHAR renameExtension2nd[16];
    WCHAR moveFolder[260];
    WCHAR moveFolder2nd[260];
    std::uint32_t zipClean;
    std::uint32_t fixed1632[3];    // 1
    std::int32_t extractSizeLimit; // -1, no limit
    std::uint32_t reserved1648[2];
    AsScanResultCallback callback;
    void* context;
    std::uint32_t reserved1672[212];
};
static_assert(sizeof(AsQuarantineConfigRecord) == 2520);
static_assert(offsetof(AsQuarantineConfigRecord, action) == 0);
static_assert(offsetof(AsQuarantineConfigRecord, backupFolder) == 4);
static_assert(offsetof(AsQuarantineConfigRecord, renameExtension) == 524);
static_assert(offsetof(AsQuarantineConfigRecord, renameExtension2nd) == 556);
static_assert(offsetof(AsQuarantineConfigRecord, moveFolder) == 588);
static_assert(offsetof(AsQuarantineConfigRecord, moveFolder2nd) == 1108);
static_assert(offsetof(AsQuarantineConfigRecord, zipClean) == 1628);
static_assert(offsetof(AsQuarantineConfigRecord, fixed1632) == 1632);
static_assert(offsetof(AsQuarantineConfigRecord, extractSizeLimit) == 1644);
static_assert(offsetof(AsQuarantineConfigRecord, reserved1648) == 1648);
static_assert(offsetof(AsQuarantineConfigRecord, callback) == 1656);
static_assert(offsetof(AsQuarantineConfigRecord, context) == 1664);
static_assert(offsetof(AsQuarantineConfigRecord, reserved1672) == 1672);
static_assert(std::is_standard_layout_v<AsQuarantineConfigRecord> &&
              std::is_trivially_copyable_v<AsQuarantineConfigRecord>);

// ASGetEngineInfo: the engine's version as a number, such as 8.5. Callers give a zeroed buffer of
// AS_ENGINE_INFO_BUFFER bytes, since engines have written more than the first field.
struct AsEngineInfo {
    double version;
};
constexpr std::size_t AS_ENGINE_INFO_BUFFER = 256;
static_assert(sizeof(AsEngineInfo) == 8);

// ASGetEngineInformation. Callers give a zeroed record.
struct AsEngineInformation {
    std::uint32_t major;
    std::uint32_t minor;
    std::uint32_t build;
    std::uint32_t reserved[5];
};
static_assert(sizeof(AsEngineInformation) == 32);
static_assert(offsetof(AsEngineInformation, major) == 0 && offsetof(AsEngineInformation, minor) == 4 &&
              offsetof(AsEngineInformation, build) == 8 && offsetof(AsEngineInformation, reserved) == 12);

// ASGetPatternInformation.
struct AsPatternInformation {
    std::uint32_t signatureCount;
    std::uint32_t hashCount;
    std::uint32_t generation; // counts the reloads of this process
    std::uint32_t version;
    std::uint32_t reserved16;
};
static_assert(sizeof(AsPatternInformation) == 20);
static_assert(offsetof(AsPatternInformation, signatureCount) == 0 && offsetof(AsPatternInformation, hashCount) == 4 &&
              offsetof(AsPatternInformation, generation) == 8 && offsetof(AsPatternInformation, version) == 12 &&
              offsetof(AsPatternInformation, reserved16) == 16);

// ASGetFirstVirusInfo, ASGetNextVirusInfo. The cursor is the library's; callers zero it first.
struct AsVirusInfo {
    std::uint32_t id;
    std::uint32_t kind;  // 0 virus, else one AsSpywareKind bit
    std::uint32_t flags; // bit 0: can be cleaned
    char name[244];
};
static_assert(sizeof(AsVirusInfo) == 256);
static_assert(offsetof(AsVirusInfo, id) == 0 && offsetof(AsVirusInfo, kind) == 4 && offsetof(AsVirusInfo, flags) == 8 &&
              offsetof(AsVirusInfo, name) == 12);

// ASGetBackupFileInfo(W): what an encoded file says of itself.
template <typename Char>
struct AsBackupInfo {
    Char sourcePath[260];  // where the file was
    Char backupPath[260];  // the encoded file
    std::uint32_t time;    // of the encoding, seconds since 1 January 1970 UTC
    std::uint32_t encoded; // 1 when the content is enciphered
};
using AsBackupInfoA = AsBackupInfo<char>;
using AsBackupInfoW = AsBackupInfo<WCHAR>;
static_assert(sizeof(AsBackupInfoA) == 528 && sizeof(AsBackupInfoW) == 1048);
static_assert(offsetof(AsBackupInfoA, backupPath) == 260 && offsetof(AsBackupInfoA, time) == 520 &&
              offsetof(AsBackupInfoA, encoded) == 524);
static_assert(offsetof(AsBackupInfoW, backupPath) == 520 && offsetof(AsBackupInfoW, time) == 1040 &&
              offsetof(AsBackupInfoW, encoded) == 1044);

// ---------------------------------------------------------------------------------------------
// Entry points

// version is 2; onAccess is 1 for a handle that can monitor, 0 for scans on demand. Null on failure,
// with the reason in the record.
using ASInitScanW_t = AsHandle(WINAPI*)(std::uint32_t version, AsInitRecord* record, std::uint32_t onAccess);
using ASDeInitScan_t = std::int32_t(WINAPI*)(AsHandle handle);
using ASGetLastError_t = std::int32_t(WINAPI*)(AsHandle handle);
// config is an AsConfigRecord, or an AsQuarantineConfigRecord for a handle without on-access.
// 1 when the configuration is in force, 0 when it was refused.
using ASSetConfigW_t = std::int32_t(WINAPI*)(AsHandle handle, const void* config);
using ASStartScan_t = std::int32_t(WINAPI*)(AsHandle handle);                    // 1 when monitoring
using ASStopScan_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t zero); // 1 when stopped
// 0 nothing found, positive when something was, negative when the scan failed. The file is not changed.
using ASScanFileW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* path);
// 1 when the action succeeded. AS_ACTION_CLEAN only, and only on a handle without on-access; a file in which nothing is
// found, or something that cannot be cleaned, is a failure.
using ASManualActionW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* path, std::uint32_t action);
using ASGetEngineInfo_t = std::int32_t(WINAPI*)(AsHandle handle, AsEngineInfo* info);
using ASGetEngineInformation_t = std::int32_t(WINAPI*)(AsHandle handle, AsEngineInformation* information);
using ASGetPatternInformation_t = std::int32_t(WINAPI*)(AsHandle handle, AsPatternInformation* information); // 1 ok
using ASGetSpyWarePatternVersion_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t* version); // non-zero ok
// stem is "vlwhite" or "vlblack". 0 when there is no such pattern; *version is then 0.
using ASGetPatternVersion_t = std::int32_t(WINAPI*)(AsHandle handle, const char* stem, std::uint32_t* version);
// 1 while a record was returned.
using ASGetVirusInfoStep_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint64_t* cursor, AsVirusInfo* info);
using ASGetVirusInfo_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t id, AsVirusInfo* info); // 1 found
// Adds one path to the list; null empties it. 1 ok.
using ASSetExceptionPathW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* path);
// *size is in characters with the NUL, in and out. 1 ok; else the size needed is in *size.
using ASGetEngineDefaultExtListW_t = std::int32_t(WINAPI*)(AsHandle handle, WCHAR* buffer, std::uint32_t* size);
using ASReloadPatternW_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t kind,
                                                 const WCHAR* folder); // non-zero ok
using ASSetPackTrap_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t on);
// Non-zero when accepted. An exclusion ends with its process.
using ASAddRemoveExceptionProcess_t = std::int32_t(WINAPI*)(AsHandle handle, std::uint32_t processId,
                                                            std::uint32_t add);
// 1 ok, else nothing was changed.
using ASEncodeFileW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* source, const WCHAR* destination);
using ASEncodeFile_t = std::int32_t(WINAPI*)(AsHandle handle, const char* source, const char* destination);
using ASRestoreFileW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* file, const WCHAR* destination);
using ASRestoreFile_t = std::int32_t(WINAPI*)(AsHandle handle, const char* file, const char* destination);
using ASGetBackupFileInfoW_t = std::int32_t(WINAPI*)(AsHandle handle, const WCHAR* file, AsBackupInfoW* info);
using ASGetBackupFileInfo_t = std::int32_t(WINAPI*)(AsHandle handle, const char* file, AsBackupInfoA* info);
