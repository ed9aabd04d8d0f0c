// The entry points of the scan library that the service is bound to from engine start-up to shut-down.
#pragma once

#include "engine/ArdScanAbi.h"

namespace vlt
{

// A slot is null when it is not resolved. The table does not hold the library: whoever loaded it
// clears the table when it is freed.
struct ArdScanTable {
    ASGetLastError_t ASGetLastError = nullptr;
    ASInitScanW_t ASInitScanW = nullptr;
    ASDeInitScan_t ASDeInitScan = nullptr;
    ASSetConfigW_t ASSetConfigW = nullptr;
    ASScanFileW_t ASScanFileW = nullptr;
    ASManualActionW_t ASManualActionW = nullptr;
    ASStartScan_t ASStartScan = nullptr;
    ASStopScan_t ASStopScan = nullptr;
    ASGetEngineInfo_t ASGetEngineInfo = nullptr;
    ASGetVirusInfoStep_t ASGetFirstVirusInfo = nullptr;
    ASGetVirusInfoStep_t ASGetNextVirusInfo = nullptr;
    ASGetPatternInformation_t ASGetPatternInformation = nullptr;
    ASGetEngineInformation_t ASGetEngineInformation = nullptr;
    ASGetVirusInfo_t ASGetVirusInfo = nullptr;
    ASGetSpyWarePatternVersion_t ASGetSpyWarePatternVersion = nullptr;
    ASSetExceptionPathW_t ASSetExceptionFilePathW = nullptr;
    ASSetExceptionPathW_t ASSetExceptionFolderPathW = nullptr;
    ASGetEngineDefaultExtListW_t ASGetEngineDefaultExtListW = nullptr;
    ASReloadPatternW_t ASReloadPatternW = nullptr;

    // Resolves all of them in a fixed order. False at the first that the library lacks; the slots after
    // it keep what they had.
    bool Resolve(HMODULE module);
};

} // namespace vlt
