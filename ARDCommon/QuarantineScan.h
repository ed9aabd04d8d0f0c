// Scanning and cleaning of one file with the quarantine store's configuration.
#pragma once

#include "ARDCommon/QuarantineError.h"
#include "ARDCommon/QuarantineLibrary.h"

#include <atomic>
#include <vector>

struct QuarantineVerdict {
    int addStatus = 0;      // 1 nothing found, 2 something was
    int scanResult = 0;     // 2 nothing found, 4 cleaned or cleanable, 3 the threat remains
    std::uint32_t code = 3; // what the result means to callers: 1, 2, 3 in that order
    WString threatName;     // a single blank when the library gave none
};

// For one scan on the calling thread; the library reports on a thread of its own.
class CQuarantineScan
{
public:
    // `folder` is the store's, without a backslash at its end.
    // `results`, when it is not null, gets the library's records.
    CQuarantineScan(const QuarantineLibrary& library, const WString& folder, std::vector<AsScanResultRecord>* results)
        : m_library(library), m_folder(folder), m_results(results)
    {
    }
    CQuarantineScan(const CQuarantineScan&) = delete;
    CQuarantineScan& operator=(const CQuarantineScan&) = delete;

    // Waits without limit for the library's report on the file itself when it says that it found
    // something.
    bool ScanFile(const WString& file, QuarantineVerdict& verdict);
    bool CleanFile(const WString& file, QuarantineVerdict& verdict);

    QuarantineError Error() const { return m_error; }

private:
    // Null, with the reason in m_error.
    template <typename Function>
    Function Export(const CLazyExport<Function>& entry)
    {
        const auto function = m_library.Export(entry);
        if (function == nullptr)
            m_error = QuarantineError::MissingExport;
        return function;
    }
    // The same once the library has this store's configuration.
    template <typename Function>
    Function ConfiguredExport(const CLazyExport<Function>& entry)
    {
        const auto function = Export(entry);
        return function != nullptr && Configure() ? function : nullptr;
    }
    bool Configure();
    static void CALLBACK ScanResultCallbackW(void* context, const AsScanResultRecord* record);

    const QuarantineLibrary& m_library;
    const WString& m_folder;
    std::vector<AsScanResultRecord>* const m_results;
    QuarantineError m_error = QuarantineError::None;

    // Written by the library's thread before it sets the flag, read by the scanning thread after it.
    WCHAR m_threatName[128] = {};
    std::uint32_t m_status = 0;
    std::atomic<bool> m_done{false};
};
