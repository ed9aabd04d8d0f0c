#include "tools/vlctl/ScanLibrary.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <algorithm>

namespace vlt::ctl
{
namespace
{

constexpr std::uint32_t InterfaceVersion = 2;
constexpr DWORD ReportMilliseconds = 60000;
constexpr WCHAR ManualScanKey[] = TEXT("Software\\Veltrano\\Ardentis\\15\\ManualScan");

WString OwnFolder()
{
    WCHAR path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        FailWith(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE, "own path");
    return FolderOf(WString(path, length));
}

bool CleansInArchives()
{
    RegKey key;
    DWORD type = 0, number = 1, size = sizeof number;
    const bool set =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, ManualScanKey, 0, KEY_READ | KEY_WOW64_32KEY, key.Receive()) == 0 &&
        RegQueryValueExW(key.Get(), TEXT("ZipClean"), nullptr, &type, reinterpret_cast<LPBYTE>(&number), &size) == 0 &&
        type == REG_DWORD && size == sizeof number;
    return !set || number != 0;
}

} // namespace

ScanLibrary::ScanLibrary()
{
    const WString folder = OwnFolder();
    m_library.Reset(LoadLibraryW((folder + TEXT("ArdScan.dll")).c_str()));
    if (!m_library)
        FailWith(GetLastError(), Printable(folder) + "ArdScan.dll");
    AsInitRecord record{};
    record.processId = GetCurrentProcessId();
    record.appFolder = record.patternFolder = folder.c_str();
    record.version = AS_INIT_VERSION;
    m_handle = Entry<ASInitScanW_t>("ASInitScanW")(InterfaceVersion, &record, 0);
    if (!m_handle)
        throw CommandError(ExitFailed, Format("the scan library does not start (reason %u)", record.reason));
}

ScanLibrary::~ScanLibrary()
{
    const auto end =
        reinterpret_cast<ASDeInitScan_t>(reinterpret_cast<void*>(GetProcAddress(m_library.Get(), "ASDeInitScan")));
    if (end)
        end(m_handle);
}

template <typename Function>
Function ScanLibrary::Entry(const char* name) const
{
    void* const entry = reinterpret_cast<void*>(GetProcAddress(m_library.Get(), name));
    if (!entry)
        FailWith(GetLastError(), name);
    return reinterpret_cast<Function>(entry);
}

void ScanLibrary::Fail(const std::string& what) const
{
    const std::int32_t error = Entry<ASGetLastError_t>("ASGetLastError")(m_handle);
    // In the order of AsError.
    static constexpr const char* texts[] = {"refused",
                                            "not a scan handle",
                                            "unusable argument",
                                            "no usable patterns",
                                            "no monitoring",
                                            "file trouble",
                                            "buffer too small",
                                            "not supported",
                                            "not possible now",
                                            "out of memory",
                                            "not an encoded file, or a damaged one"};
    const bool known = error >= 0 && error < static_cast<std::int32_t>(std::size(texts));
    const char* const text = known ? texts[error] : "error";
    throw CommandError(ExitFailed, Format("%s: the scan library says: %s (%d)", what, text, error));
}

WString ScanLibrary::SourceOf(const WString& file) const
{
    AsBackupInfoW info{};
    if (Entry<ASGetBackupFileInfoW_t>("ASGetBackupFileInfoW")(m_handle, file.c_str(), &info) != 1)
        Fail(Printable(file));
    return WString(FieldText(info.sourcePath));
}

void ScanLibrary::Restore(const WString& file, const WString& destination) const
{
    if (Entry<ASRestoreFileW_t>("ASRestoreFileW")(m_handle, file.c_str(), destination.c_str()) != 1)
        Fail(Printable(file));
}

void CALLBACK ScanLibrary::TakeReport(void* context, const AsScanResultRecord* record)
{
    auto& report = *static_cast<Report*>(context);
    report.threat = FieldText(record->threatName);
    report.status = record->status;
    // The members of an archive come before the archive itself.
    if (FieldText(record->innerName).empty())
        SetEvent(report.done.Get());
}

AsQuarantineConfigRecord ScanLibrary::ConfigFor(const WString& storeFolder)
{
    WStringView folder = storeFolder;
    if (folder.ends_with('\\') || folder.ends_with('/'))
        folder.remove_suffix(1);
    AsQuarantineConfigRecord config{};
    config.action = AS_ACTION_CLEAN;
    CopyToField(config.backupFolder, WStringView(WString(folder) + TEXT("\\backup\\")));
    CopyToField(config.renameExtension, WStringView(TEXT(".VIR")));
    CopyToField(config.renameExtension2nd, WStringView(TEXT(".VIR")));
    CopyToField(config.moveFolder, folder);
    CopyToField(config.moveFolder2nd, folder);
    config.zipClean = CleansInArchives();
    std::fill(std::begin(config.fixed1632), std::end(config.fixed1632), 1u);
    config.extractSizeLimit = -1;
    config.callback = TakeReport;
    config.context = &m_report;
    return config;
}

ScanLibrary::Verdict ScanLibrary::Scan(const WString& file, const WString& storeFolder)
{
    m_report.done.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_report.done)
        FailWith(GetLastError(), "event");
    const AsQuarantineConfigRecord config = ConfigFor(storeFolder);
    if (Entry<ASSetConfigW_t>("ASSetConfigW")(m_handle, &config) != 1)
        Fail("configuration");
    const std::int32_t result = Entry<ASScanFileW_t>("ASScanFileW")(m_handle, file.c_str());
    if (result < 0)
        Fail(Printable(file));
    if (result == 0)
        return {1, {}};
    if (WaitForSingleObject(m_report.done.Get(), ReportMilliseconds) != WAIT_OBJECT_0)
        throw CommandError(ExitFailed, "the scan library does not report what it has found");
    return {m_report.status == 1 ? 2u : 3u, m_report.threat.empty() ? WString(TEXT(" ")) : m_report.threat};
}

} // namespace vlt::ctl
