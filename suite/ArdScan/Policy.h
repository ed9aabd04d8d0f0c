// What the caller asked for: the configuration record, and the exceptions, in the form that a scan asks.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/ArdScan/Cleaner.h"
#include "suite/ArdScan/PatternSet.h"

#include <cstdint>
#include <vector>

namespace vlt::scan
{

// The extension list of a configuration: "*" is every file, else extensions after dots, semicolons,
// commas or blanks; quotes and a leading "{*" of the displayed default list are passed over.
class CExtensionList
{
public:
    CExtensionList() = default;
    explicit CExtensionList(WStringView list);

    bool All() const { return m_all; }
    // Of a file name or path.
    bool Contains(WStringView path) const;

private:
    bool m_all = false;
    std::vector<WString> m_extensions; // folded, without the dot, sorted
};

// What ASGetEngineDefaultExtListW gives.
WStringView DefaultExtensions();

// Files and folders that are not scanned. A folder stands for everything below it.
class CExceptionList
{
public:
    void AddFile(WStringView path);
    void AddFolder(WStringView path);
    void ClearFiles() { m_files.clear(); }
    void ClearFolders() { m_folders.clear(); }
    bool Empty() const { return m_files.empty() && m_folders.empty(); }
    bool Contains(WStringView path) const;

private:
    std::vector<WString> m_files;   // folded
    std::vector<WString> m_folders; // folded, with a backslash at the end
};

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
