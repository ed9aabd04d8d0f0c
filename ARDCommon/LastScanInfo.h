// Writes and reads the record of the last file scanned and of the last detection (ScanInfoFormat.h).
#pragma once

#include "platform/win32.h"

struct LastScanRecord {
    DWORD type = 0;
    std::uint32_t time = 0;
    WString file;
};

struct LastDetectRecord {
    DWORD type = 0;
    std::uint32_t time = 0;
    WString file;
    WString threat;
};

// Stateless, for any thread. Every value is a registry write of its own without a lock, so records
// written at the same time can mix.
class CLastScanInfo
{
public:
    static constexpr DWORD kNeverWritten = 999; // the type that a reader finds before the first record

    // 1, or 0 without a record. Whether a value could be written is not looked at.
    int SetLastScanInfo(const LastScanRecord* record) const;
    int SetLastDetectInfo(const LastDetectRecord* record) const;

    // 1, or 0 without a record. What is missing reads as kNeverWritten, 0 and empty text; a text of more
    // than 129 characters as empty.
    int GetLastScanInfo(LastScanRecord* record) const;
    int GetLastDetectInfo(LastDetectRecord* record) const;
};

// The last user who logged on, from the system's own record, in the system code page. The length, 0
// when there is none.
int GetDefaultUserName(char (&name)[256]);
