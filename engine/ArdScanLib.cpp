#include "engine/ArdScanLib.h"

#include "engine/ProcAddress.h"

CArdScanLib::~CArdScanLib()
{
    DynLib::Free();
}

void CArdScanLib::OnLoad(bool loaded)
{
    m_isInit = vlt::ResolveProc(loaded ? Handle() : nullptr, "ASGetPatternInformation", ASGetPatternInformation);
}
