// The last file scanned and the last detection, in the registry for the suite's user interface:
// HKLM\Software\Veltrano\Ardentis\15\ScanInfo, 32-bit view.
//
//   LastScanType, LastScanTime, LastScanFile
//   LastDetectType, LastDetectTime, LastDetectFile, LastDetectVirus
//
// Types and times are REG_DWORD, texts REG_SZ. A time is seconds since 1 January 1970 UTC, kept in 32
// bits. The time of a scan is written only when its type is not 0, so the service, which writes type 0,
// leaves what others have written; the time of a detection is written always.
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
