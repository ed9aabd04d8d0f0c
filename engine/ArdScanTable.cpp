#include "engine/ArdScanTable.h"

#include "engine/ProcAddress.h"

namespace vlt
{

bool ArdScanTable::Resolve(HMODULE module)
{
    return ResolveProc(module, "ASGetLastError", ASGetLastError) && //
           ResolveProc(module, "ASInitScanW", ASInitScanW) && ResolveProc(module, "ASDeInitScan", ASDeInitScan) &&
           ResolveProc(module, "ASSetConfigW", ASSetConfigW) && //
           ResolveProc(module, "ASScanFileW", ASScanFileW) && ResolveProc(module, "ASManualActionW", ASManualActionW) &&
           ResolveProc(module, "ASStartScan", ASStartScan) && //
           ResolveProc(module, "ASStopScan", ASStopScan) && ResolveProc(module, "ASGetEngineInfo", ASGetEngineInfo) &&
           ResolveProc(module, "ASGetFirstVirusInfo", ASGetFirstVirusInfo) &&
           ResolveProc(module, "ASGetNextVirusInfo", ASGetNextVirusInfo) &&
           ResolveProc(module, "ASGetPatternInformation", ASGetPatternInformation) &&
           ResolveProc(module, "ASGetEngineInformation", ASGetEngineInformation) &&
           ResolveProc(module, "ASGetVirusInfo", ASGetVirusInfo) &&
           ResolveProc(module, "ASGetSpyWarePatternVersion", ASGetSpyWarePatternVersion) &&
           ResolveProc(module, "ASSetExceptionFilePathW", ASSetExceptionFilePathW) &&
           ResolveProc(module, "ASSetExceptionFolderPathW", ASSetExceptionFolderPathW) &&
           // Asked for twice, into one slot: the library sees the order it has always seen.
           ResolveProc(module, "ASScanFileW", ASScanFileW) &&
           ResolveProc(module, "ASGetEngineDefaultExtListW", ASGetEngineDefaultExtListW) &&
           ResolveProc(module, "ASReloadPatternW", ASReloadPatternW);
}

} // namespace vlt
