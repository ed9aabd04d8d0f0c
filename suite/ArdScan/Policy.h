// What the caller asked for: the configuration record in the form that a scan asks.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/ArdScan/Cleaner.h"
#include "suite/ArdScan/FileRules.h"
#include "suite/ArdScan/PatternSet.h"

#include <cstdint>

namespace vlt::scan
{

struct Callbacks {
    AsLastScanCallback lastScan = nullptr;
    void* lastScanContext = nullptr;
    AsDetectionCallback virus = nullptr;
    void* virusContext = nullptr;
    AsDetectionCallback spyware = nullptr;
    void* spywareContext = nullptr;
};

// A copy of the parts of AsConfigRecord that this engine acts on.
struct Policy {
    std::uint32_t firstAction = AS_ACTION_DENY;
    std::uint32_t secondAction = AS_ACTION_NONE;
    WString moveFolder[2]; // of the first and the second action
    WString renameExtension[2];
    BackupSettings backup; // before cleaning
    std::uint32_t directionMask = 0;
    std::uint64_t sizeLimit = UINT64_MAX; // bytes
    bool network = true;
    ScanFilter filter;
    CExtensionList extensions;
    Callbacks callbacks;

    static Policy FromRecord(const AsConfigRecord& record);
    bool Wants(std::uint32_t direction) const { return (directionMask & direction) != 0; }
};

} // namespace vlt::scan
