// The quarantine store for callers with texts in the system code page: CQuarantine with every text
// converted. What the code page cannot say becomes its replacement character.
#pragma once

#include "ARDCommon/Quarantine.h"

struct QuarantineRecordA {
    std::uint32_t platform;
    std::uint32_t type;
    std::uint32_t status;
    std::uint32_t patternVersion;
    std::uint8_t engineVersion[8];
    char sourceName[260];
    char sourceFolder[260];
    char quarantinedName[260];
    char date[260];
    char threatName[260];
};

// Results, errors and threads as those of the wide operations of the same name.
class CQuarantineA
{
public:
    int QuarantineInit(LPCSTR patternPath, LPCSTR quarantineFolder);
    int QuarantineInit(HMODULE library, AsHandle handle, LPCSTR quarantineFolder);
    void QuarantineClose() { m_store.QuarantineClose(); }
    DWORD LastErrorCode() const { return m_store.LastErrorCode(); }

    int RenameEncodeFile(LPCSTR encodedFile, LPCSTR sourcePath, LPCSTR threatName);
    int _WriteQuarantineDB(std::uint32_t type, LPCSTR sourcePath, LPCSTR quarantinedName, std::uint32_t status,
                           LPCSTR threatName);
    int _ReadQuarantineDB(QuarantineRecordA* record);
    int GetBackupInfo(QuarantineRecordA* record);
    void CloseEnumerations() { m_store.CloseEnumerations(); }
    int UpdateQuarantineDB(LPCSTR quarantinedName, std::uint32_t status, LPCSTR threatName);
    void SelectForDeletion(LPCSTR quarantinedName);
    int DeleteQuarantined() { return m_store.DeleteQuarantinedW(); }
    int DeleteBackup(LPCSTR name);
    int ClearAll() { return m_store.ClearAllW(); }
    int _EncodeFile(LPCSTR source, LPCSTR destination, bool encode, bool retry);
    int RestoreFile(LPCSTR file, LPCSTR destination, bool retry);
    int _ScanClean(LPCSTR quarantinedName, int mode, std::uint32_t* result);
    int Scan(LPCSTR quarantinedName, int mode, std::uint32_t* result);
    int Scan2(LPCSTR file);

private:
    CQuarantine m_store;
};
