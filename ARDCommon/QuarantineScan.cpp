#include "ARDCommon/QuarantineScan.h"

#include "ARDCommon/Registry.h"
#include "platform/Text.h"

#include <new>

namespace
{

constexpr DWORD kPollInterval = 1; // ms
constexpr WCHAR kManualScanKey[] = TEXT("Software\\Veltrano\\Ardentis\\15\\ManualScan");

} // namespace

bool CQuarantineScan::Configure()
{
    const auto setConfig = Export(m_library.m_pfASSetConfigW);
    if (setConfig == nullptr)
        return false;
    AsQuarantineConfigRecord config{};
    config.action = AS_ACTION_CLEAN;
    WString backup = m_folder;
    backup += TEXT("\\backup\\");
    vlt::CopyToField(config.backupFolder, WStringView(backup));
    vlt::CopyToField(config.renameExtension, WStringView(TEXT(".VIR")));
    vlt::CopyToField(config.renameExtension2nd, WStringView(TEXT(".VIR")));
    vlt::CopyToField(config.moveFolder, WStringView(m_folder));
    vlt::CopyToField(config.moveFolder2nd, WStringView(m_folder));
    config.zipClean = vlt::GetRegDword(HKEY_LOCAL_MACHINE, kManualScanKey, TEXT("ZipClean"), 1) != 0;
    for (std::uint32_t& fixed : config.fixed1632)
        fixed = 1;
    config.extractSizeLimit = -1;
    config.callback = ScanResultCallbackW;
    config.context = this;
    if (setConfig(m_library.handle, &config) == 1)
        return true;
    m_error = QuarantineError::Config;
    return false;
}

bool CQuarantineScan::ScanFile(const WString& file, QuarantineVerdict& verdict)
{
    const auto scanFile = ConfiguredExport(m_library.m_pfASScanFileW);
    if (scanFile == nullptr)
        return false;
    m_threatName[0] = 0;
    m_done = false;
    const std::int32_t result = scanFile(m_library.handle, file.c_str());
    if (result < 0) {
        m_error = QuarantineError::Scan;
        return false;
    }
    if (result == 0) {
        verdict = {.addStatus = 1, .scanResult = 2, .code = 1, .threatName = {}};
        return true;
    }
    while (!m_done.load(std::memory_order_acquire))
        Sleep(kPollInterval);
    const bool cleanable = m_status == 1;
    verdict = {
        .addStatus = 2, .scanResult = cleanable ? 4 : 3, .code = cleanable ? 2u : 3u, .threatName = m_threatName};
    if (verdict.threatName.empty())
        verdict.threatName.assign(1, TEXT(' '));
    return true;
}

bool CQuarantineScan::CleanFile(const WString& file, QuarantineVerdict& verdict)
{
    const auto manualAction = ConfiguredExport(m_library.m_pfASManualActionW);
    if (manualAction == nullptr)
        return false;
    if (manualAction(m_library.handle, file.c_str(), AS_ACTION_CLEAN) != 1) {
        m_error = QuarantineError::Action;
        return false;
    }
    verdict = {.addStatus = 2, .scanResult = 4, .code = 2, .threatName = {}};
    return true;
}

void CALLBACK CQuarantineScan::ScanResultCallbackW(void* context, const AsScanResultRecord* record)
{
    VLT_TRACE(50, "[Enter] CQuarantine::ScanResultCallbackW()");
    auto& scan = *static_cast<CQuarantineScan*>(context);
    vlt::CopyToField(scan.m_threatName, vlt::FieldText(record->threatName));
    scan.m_status = record->status;
    try {
        if (scan.m_results != nullptr)
            scan.m_results->push_back(*record);
    } catch (const std::bad_alloc&) { // the scan goes on without it
    }
    // Members of an archive are reported before the file itself.
    if (vlt::FieldText(record->innerName).empty())
        scan.m_done.store(true, std::memory_order_release);
    VLT_TRACE(50, "[Leave] CQuarantine::ScanResultCallbackW()");
}
