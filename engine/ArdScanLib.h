// The quarantine store's own binding of the scan library, separate from the service's ArdScanTable:
// the store resolves what else it needs by name at the point of use.
#pragma once

#include "engine/ArdScanAbi.h"
#include "engine/DynLib.h"

class CArdScanLib : public DynLib
{
public:
    ~CArdScanLib() override;

    ASGetPatternInformation_t ASGetPatternInformation = nullptr;

protected:
    void OnLoad(bool loaded) override;
};
