// The suite's scan library, beside this program, as a handle for work on demand.
#pragma once

#include "engine/ArdScanAbi.h"
#include "platform/Unique.h"

namespace vlt::ctl
{

// Functions throw CommandError.
class ScanLibrary
{
public:
    ScanLibrary();
    ~ScanLibrary();
    ScanLibrary(const ScanLibrary&) = delete;
    ScanLibrary& operator=(const ScanLibrary&) = delete;

    // Where an encoded file was before, as the file itself says.
    WString SourceOf(const WString& file) const;

    // Writes the content of an encoded file to the destination, which may be there.
    void Restore(const WString& file, const WString& destination) const;

    struct Verdict {
        std::uint32_t code = 3; // 1 nothing found, 2 can be cleaned, 3 the threat remains
        WString threat;         // a blank when it has no name, empty when nothing was found
    };
    // With the configuration of the quarantine store in that folder.
    Verdict Scan(const WString& file, const WString& storeFolder);

private:
    // What the library reports of a scan, from a thread of its own. The library keeps the address of it
    // until its handle is closed.
    struct Report {
        KernelHandle done;
        std::uint32_t status = 0;
        WString threat;
    };
    static void CALLBACK TakeReport(void* context, const AsScanResultRecord* record);

    AsQuarantineConfigRecord ConfigFor(const WString& storeFolder);

    template <typename Function>
    Function Entry(const char* name) const;
    [[noreturn]] void Fail(const std::string& what) const;

    LibraryHandle m_library;
    AsHandle m_handle = nullptr;
    Report m_report;
};

} // namespace vlt::ctl
