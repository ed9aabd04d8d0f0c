// On-access monitoring of folders, the host's way.
#pragma once

#include "suite/ArdScan/Ini.h"
#include "suite/ArdScan/ScanContext.h"

#include <memory>
#include <vector>

namespace vlt::scan
{

class CGuard
{
public:
    virtual ~CGuard() = default; // ends monitoring and the threads; nothing waits for an answer after it

    // Makes every file be looked at again. Openers are answered all the while.
    virtual void ForgetVerdicts() = 0;
};

// Monitoring starts before this returns; null when it could not be. The context's status says which way
// it is done and why. Folders that do not exist are left out.
std::unique_ptr<CGuard> StartGuard(CScanContext& context, const EngineSettings& settings);

} // namespace vlt::scan
