#include "tools/vlctl/ScanDecision.h"

#include "platform/Format.h"
#include "suite/ArdScan/FileRules.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/EngineReport.h"
#include "tools/vlctl/ExclusionList.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

#include <optional>
#include <system_error>

namespace vlt::ctl
{
namespace
{

namespace fs = std::filesystem;

fs::path Resolved(const fs::path& path)
{
    std::error_code error;
    fs::path full = fs::weakly_canonical(fs::absolute(path, error), error);
    return error ? path.lexically_normal() : full;
}

bool IsBelow(const WString& path, const WString& folder)
{
    return scan::FoldPath(path).starts_with(scan::FoldPath(folder) + WCHAR('\\'));
}

// The guarded folder that the path is in; nothing when there is none.
std::optional<ScanDecision> GuardedFolder(const WString& path)
{
    const auto& folders = EngineSettingsIn(ServiceFolder()).folders;
    for (std::size_t i = 0; i < folders.size(); ++i)
        if (IsBelow(path, scan::ToWindows(Resolved(scan::ToHostUtf8(folders[i])))))
            return ScanDecision{true, "guarded folder", Format("Folder%u", i), folders[i]};
    return std::nullopt;
}

std::optional<ScanDecision> ExcludedBy(const WString& path)
{
    for (const Exclusion& entry : ReadExclusions()) {
        scan::CExceptionList list;
        if (!entry.inForce)
            continue;
        if (entry.folder)
            list.AddFolder(entry.path);
        else
            list.AddFile(entry.path);
        if (list.Contains(path))
            return ScanDecision{false, "exclusion", entry.name, Utf8(entry.path)};
    }
    return std::nullopt;
}

ScanDecision BySetting(SettingId id, const std::string& detail)
{
    return {false, "setting", Utf8(Setting(id).name), detail};
}

// What the settings keep out, by its kind and size.
std::optional<ScanDecision> KeptOut(const WString& path)
{
    if (!ReadSwitch(SettingId::AllFile) && !ReadSwitch(SettingId::ActiveScan)) {
        const std::string listed = ReadTextSetting(SettingId::FileTypeList);
        if (!scan::CExtensionList(FromUtf8(listed)).Contains(path))
            return BySetting(SettingId::FileTypeList, listed.empty() ? "the list is empty" : listed);
    }
    const std::uint32_t limit = ReadNumberSetting(SettingId::ExtractFileSizeLimit);
    std::error_code error;
    const std::uintmax_t size = fs::file_size(scan::ToHost(path), error);
    if (limit != 0xFFFFFFFFu && !error && size > limit)
        return BySetting(SettingId::ExtractFileSizeLimit, Format("%u bytes; the file has %u", limit, size));
    return std::nullopt;
}

} // namespace

WString FullPath(const std::string& path)
{
    if (path.empty())
        throw CommandError(ExitUsage, "the path is empty");
    const WString full = scan::ToWindows(Resolved(scan::ToHostUtf8(path)));
    if (full.empty())
        throw CommandError(ExitUsage, Printable(FromUtf8(path)) + ": no path that the service can name",
                           "it may be too long; name a folder above it");
    return full;
}

bool IsFolder(const WString& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

ScanDecision DecideScan(const WString& path)
{
    if (!ReadSwitch(SettingId::IOScanE))
        return BySetting(SettingId::IOScanE, "monitoring is switched off");
    if (ReadNumberSetting(SettingId::InOut) == 0)
        return BySetting(SettingId::InOut, "no access is scanned");
    const auto guarded = GuardedFolder(path);
    if (!guarded)
        return {false, "guarded folder", "none", "ArdScan.ini names no folder above it"};
    if (const auto excluded = ExcludedBy(path))
        return *excluded;
    if (IsBelow(path, ServiceFolder() + TEXT("Quarantine")))
        return {false, "quarantine", "Quarantine", "what is put away already is not reported again"};
    return KeptOut(path).value_or(*guarded);
}

} // namespace vlt::ctl
