// The quarantine store: infected files that the scan library has encoded, out of reach in one folder,
// and the record of where they came from. QuarantineFormat.h has the layout on disk.
//
// Operations return 1 for success and 0 for failure, with the reason in LastErrorCode(). Only
// RenameEncodeFileW and _WriteQuarantineDBW may be called by several threads at once; anything else,
// and the life of the object, belongs to one thread. Paths are UTF-16 of at most 259 units; the narrow
// forms are in QuarantineA.h. Nothing throws but std::bad_alloc.
#pragma once

#include "ARDCommon/QuarantineDb.h"
#include "ARDCommon/QuarantineError.h"
#include "ARDCommon/QuarantineFormat.h"
#include "ARDCommon/QuarantineLibrary.h"
#include "ARDCommon/QuarantineScan.h"
#include "engine/ArdScanLib.h"
#include "platform/Unique.h"

#include <atomic>
#include <optional>
#include <vector>

class CQuarantine
{
public:
    CQuarantine() = default;
    ~CQuarantine();
    CQuarantine(const CQuarantine&) = delete;
    CQuarantine& operator=(const CQuarantine&) = delete;

    // Makes the folder when it is missing, takes back what a crash has left of a rewrite, and opens a
    // scan handle of its own. patternPath is the folder of the scan library's patterns.
    int QuarantineInitW(LPCWSTR patternPath, LPCWSTR quarantineFolder);
    // With a library and a scan handle of the caller's, which outlive the store. To scan, the handle must
    // be one for scans on demand.
    int QuarantineInitW(HMODULE library, AsHandle handle, LPCWSTR quarantineFolder);
    void QuarantineClose();

    DWORD LastErrorCode() const { return static_cast<DWORD>(m_lastError.load()); }
    const WString& Folder() const { return m_folder; } // no backslash at its end

    // Moves a file that the library has encoded into the store and records it. A name without a folder
    // is one in the quarantine folder. sourcePath, where the file was found, may be empty.
    int RenameEncodeFileW(LPCWSTR encodedFile, LPCWSTR sourcePath, LPCWSTR threatName);
    int _WriteQuarantineDBW(std::uint32_t type, LPCWSTR sourcePath, LPCWSTR quarantinedName, std::uint32_t status,
                            LPCWSTR threatName);

    // The next record of a quarantined file. 0 at the end, too, with error 0.
    int _ReadQuarantineDBW(QuarantineRecord* record);
    // The next backup copy that the library knows, as a record of type 2 or 3.
    int GetBackupInfoW(QuarantineRecord* record);
    // The next call of each of both begins anew.
    void CloseEnumerations();

    // In the records of exactly that name; the threat name replaces one that is there already only.
    int UpdateQuarantineDBW(LPCWSTR quarantinedName, std::uint32_t status, LPCWSTR threatName);

    void SelectForDeletion(LPCWSTR quarantinedName);
    int DeleteQuarantinedW(); // the selected files and their records; empties the selection
    int DeleteBackupW(LPCWSTR name);
    int ClearAllW(); // 0 when there was no file

    // Encodes, or copies, source to destination and deletes the source. The destination gets its
    // attributes. With retry through a copy in the quarantine folder.
    int _EncodeFileW(LPCWSTR source, LPCWSTR destination, bool encode, bool retry);
    // Restores an encoded file to the destination; null for the place it came from.
    int RestoreFileW(LPCWSTR file, LPCWSTR destination, bool retry);

    // Scans (mode 1) or cleans a quarantined file or a backup copy, encodes it again and updates its
    // record. *result: 1 nothing found, 2 cleaned, 3 the threat remains.
    int _ScanCleanW(LPCWSTR quarantinedName, int mode, std::uint32_t* result);
    // The same without touching the kept file. The result, 0 on failure.
    int ScanW(LPCWSTR quarantinedName, int mode, std::uint32_t* result);
    // Scans any file with the store's configuration. The result as above, 0 on failure.
    int Scan2W(LPCWSTR file);
    // The list, which outlives the scans, gets each record that the library reports; null for none.
    void AttachResultList(std::vector<AsScanResultRecord>* results) { m_results = results; }

private:
    int Fail(QuarantineError error);
    int Report(QuarantineError error); // 1 for None, otherwise Fail
    int SetFolder(LPCWSTR quarantineFolder);
    void DeleteDecodedCopies() const;
    int LoadScanLibrary(LPCWSTR patternPath);

    QuarantineError _CreateQuarantineInfoW(QuarantineRecord& record, std::uint32_t type, LPCWSTR sourcePath,
                                           LPCWSTR quarantinedName, std::uint32_t status, LPCWSTR threatName);
    bool MoveIntoStore(const WString& encodedFile, WString& quarantinedName);
    bool FindRecord(LPCWSTR quarantinedName, QuarantineRecord& record);

    struct Examination { // of a kept file, restored for a scan
        QuarantineRecord record{};
        WString name; // as the record has it
        WString file;
        WString folder;
        WString copy;
        bool done = false; // the verdict stands
        QuarantineVerdict verdict;
    };
    // False when there is nothing to examine; otherwise EndExamination has to follow.
    bool ExamineKept(LPCWSTR quarantinedName, int mode, const std::uint32_t* result, LPCWSTR backupFolder,
                     Examination& examination);
    bool Examine(const WString& workingCopy, int mode, QuarantineVerdict& verdict);
    static void EndExamination(const Examination& examination);
    void UpdateStatus(const WString& name, std::uint32_t status, const QuarantineVerdict& verdict);

    std::atomic<QuarantineError> m_lastError{QuarantineError::None};
    std::uint32_t m_platform = 0;
    WString m_folder;
    std::optional<CQuarantineDb> m_db;
    vlt::FindHandle m_backups; // of the listing

    CArdScanLib m_ardScan; // the pattern number; keeps the library when this object loaded it
    QuarantineLibrary m_library;
    bool m_ownsScanHandle = false;

    std::vector<WString> m_selected; // for deletion
    std::vector<AsScanResultRecord>* m_results = nullptr;
};
