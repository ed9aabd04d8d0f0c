// The settings of on-access scanning as they stand in the registry: the keys, and one table of the
// values with their types, defaults, bounds and meanings. Read by the service, written by the user
// interface and the operator's tool; all of them use the 32-bit view.
#pragma once

#include "platform/win32.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vlt
{

// Under HKEY_LOCAL_MACHINE.
inline constexpr const WCHAR* kRealTimeScanKey = TEXT("Software\\Veltrano\\Ardentis\\15\\RealTimeScan");
inline constexpr const WCHAR* kExceptionKey = TEXT("Software\\Veltrano\\Ardentis\\15\\Exception");

// The exception key holds 8-bit strings File0 to File99 and Folder0 to Folder99, each of at most
// kExceptionBytes with its NUL. The first index that is missing or unreadable ends a list; an empty
// value and "none" are place holders that do not.
inline constexpr unsigned kExceptionCount = 100;
inline constexpr DWORD kExceptionBytes = 256;
inline constexpr const char* kExceptionFileStem = "File";
inline constexpr const char* kExceptionFolderStem = "Folder";
inline constexpr const char* kExceptionPlaceHolder = "none";

enum class SettingType {
    Number,   // REG_DWORD
    Ciphered, // REG_BINARY, CipheredValueFormat.h
    Text,     // REG_SZ
};

enum class SettingId : std::size_t {
    Action,
    Action2nd,
    AllFile,
    PattnExt,
    ActiveAction,
    ActiveScan,
    FileTypeList,
    CleanBackup,
    InOut,
    MoveDirectory,
    MoveDirectory2nd,
    RenameExt,
    ZipScanOnOff,
    ZipScan,
    ZipClean,
    MonitorNetwork,
    GenericMacro,
    ExtractFileSizeLimit,
    ExtractFileCountLimit,
    EncodeBackup,
    Spyware,
    SpyThreats,
    ScriptTrap,
    PackTrap,
    UserName,
    IOScanE,
    DefaultExtension,
    Count
};

struct SettingInfo {
    SettingId id;
    const WCHAR* name;
    SettingType type;
    std::uint32_t number; // default of a Number or Ciphered value
    std::uint32_t most;   // largest number that has a meaning; the service passes on whatever it finds
    const WCHAR* text;    // default of a Text value; null when the default is the program's folder
    std::uint32_t bytes;  // largest Text value in bytes, NUL included; a longer one counts as missing. 0 when
                          // the service itself writes the value
    const char* meaning;
};

namespace detail
{
inline constexpr std::uint32_t Any = 0xFFFFFFFFu;

constexpr SettingInfo Number(SettingId id, const WCHAR* name, std::uint32_t fallback, std::uint32_t most,
                             const char* meaning)
{
    return {id, name, SettingType::Number, fallback, most, TEXT(""), 4, meaning};
}
constexpr SettingInfo Switch(SettingId id, const WCHAR* name, std::uint32_t fallback, const char* meaning)
{
    return Number(id, name, fallback, 1, meaning);
}
constexpr SettingInfo Text(SettingId id, const WCHAR* name, const WCHAR* fallback, std::uint32_t bytes,
                           const char* meaning)
{
    return {id, name, SettingType::Text, 0, 0, fallback, bytes, meaning};
}
} // namespace detail

inline constexpr std::array<SettingInfo, static_cast<std::size_t>(SettingId::Count)> kRealTimeSettings{{
    detail::Number(SettingId::Action, TEXT("Action"), 3, 7,
                   "first action: 0 none, 1 pass, 2 quarantine, 3 clean, 4 delete, 5 rename, 6 move, 7 deny"),
    detail::Number(SettingId::Action2nd, TEXT("Action2nd"), 2, 7,
                   "action when the first one fails; numbers as for Action"),
    detail::Switch(SettingId::AllFile, TEXT("AllFile"), 0, "scan every file"),
    detail::Number(SettingId::PattnExt, TEXT("PattnExt"), 0, detail::Any, "not used"),
    detail::Switch(SettingId::ActiveAction, TEXT("ActiveAction"), 1, "recommended actions; gates CleanBackup"),
    detail::Switch(SettingId::ActiveScan, TEXT("ActiveScan"), 1, "recommended file types, which are all"),
    detail::Text(SettingId::FileTypeList, TEXT("FileTypeList"), TEXT(""), 1538,
                 "own extensions (\".EXE.COM\"), when AllFile and ActiveScan are 0"),
    detail::Switch(SettingId::CleanBackup, TEXT("CleanBackup"), 1, "back up before cleaning"),
    detail::Number(SettingId::InOut, TEXT("InOut"), 15, 15,
                   "accesses that are scanned: 1 open, 2 write, 4 rename, 8 run"),
    detail::Text(SettingId::MoveDirectory, TEXT("MoveDirectory"), nullptr, 520, "folder that files are moved to"),
    detail::Text(SettingId::MoveDirectory2nd, TEXT("MoveDirectory2nd"), nullptr, 520, "folder of the second action"),
    detail::Text(SettingId::RenameExt, TEXT("RenameExt"), TEXT(".VIR"), 520, "extension that renamed files get"),
    detail::Switch(SettingId::ZipScanOnOff, TEXT("ZipScanOnOff"), 0, "master switch of compressed-file scanning"),
    detail::Number(SettingId::ZipScan, TEXT("ZipScan"), 1, detail::Any,
                   "compressed-file scanning, when ZipScanOnOff is set"),
    detail::Switch(SettingId::ZipClean, TEXT("ZipClean"), 0, "clean inside archives"),
    detail::Switch(SettingId::MonitorNetwork, TEXT("MonitorNetwork"), 1, "scan files on network drives too"),
    detail::Number(SettingId::GenericMacro, TEXT("GenericMacro"), 1, detail::Any, "macro heuristic"),
    detail::Number(SettingId::ExtractFileSizeLimit, TEXT("ExtractFileSizeLimit"), 0xFFFFFFFFu, detail::Any,
                   "largest file extracted from an archive, bytes"),
    detail::Number(SettingId::ExtractFileCountLimit, TEXT("ExtractFileCountLimit"), 0, detail::Any,
                   "most files extracted from one archive; 0 is no limit"),
    detail::Switch(SettingId::EncodeBackup, TEXT("EncodeBackup"), 1, "keep backups enciphered"),
    detail::Switch(SettingId::Spyware, TEXT("Spyware"), 0, "spyware scanning"),
    detail::Number(SettingId::SpyThreats, TEXT("SpyThreats"), 76, detail::Any, "spyware kinds, when Spyware is 1"),
    detail::Number(SettingId::ScriptTrap, TEXT("ScriptTrap"), 1, detail::Any, "script heuristic"),
    detail::Number(SettingId::PackTrap, TEXT("PackTrap"), 1, detail::Any, "packed-file heuristic"),
    detail::Text(SettingId::UserName, TEXT("UserName"), TEXT(""), 520, "the interactive user"),
    {SettingId::IOScanE, TEXT("IOScanE"), SettingType::Ciphered, 1, 1, TEXT(""), 8,
     "on-access monitoring; anything but a valid 0 is on"},
    detail::Text(SettingId::DefaultExtension, TEXT("DefaultExtension"), TEXT(""), 0,
                 "the engine's default extensions, written by the service for display"),
}};

constexpr const SettingInfo& Setting(SettingId id)
{
    return kRealTimeSettings[static_cast<std::size_t>(id)];
}

namespace detail
{
constexpr bool SettingsAreSound()
{
    for (std::size_t i = 0; i < kRealTimeSettings.size(); ++i)
        if (static_cast<std::size_t>(kRealTimeSettings[i].id) != i ||
            kRealTimeSettings[i].number > kRealTimeSettings[i].most)
            return false;
    return true;
}
static_assert(SettingsAreSound(), "the table is indexed by SettingId, and defaults are within bounds");
} // namespace detail

} // namespace vlt
