#include "engine/ArdScanLib.h"

#include "ARDCommon/VlDebug.h"
#include "engine/ProcAddress.h"

CArdScanLib::~CArdScanLib()
{
    DynLib::Free();
}

void CArdScanLib::OnLoad(bool loaded)
{
    m_isInit = vlt::ResolveProc(loaded ? Handle() : nullptr, "ASGetPatternInformation", ASGetPatternInformation);
    if (loaded && !m_isInit)
        VLT_TRACE(20, "Failed: GetProcAddress(): %s", "ASGetPatternInformation");
}
