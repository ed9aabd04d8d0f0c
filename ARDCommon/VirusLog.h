// The day's virus log: one line for each detection, and the last detection for user interfaces.
//
// File: <program folder>Log\YYYYMMDD.VLG by the local date of the write. UTF-16 little-endian; a new
// file begins with U+FEFF. Lines are only appended and end in CR LF. Twelve fields between "|":
//   1 date YYYYMMDD   2 time HHMMSS, both local     3 "01048576"   4 "00000001"   5 "2"
//   6 kind: 0 when the infected path is a bare drive (two characters), else 1
//   7 threat name, "---" when the record has neither a name nor an infected path
//   8 infected path; "infected path (second path)" when there is a second one; the second path alone
//     when the record has neither a name nor an infected path
//   9 to 12 first action, its result, second action, its result, as signed decimals
// Fields 3 to 5 are constants of the format.
#pragma once

#include "engine/ArdScanAbi.h"
#include "platform/win32.h"

// Stateless; callers serialise writes, since another writer of the file is refused (shared for
// reading only) and its line would be lost.
class CVirusLogForRealTimeScan2
{
public:
    // Appends the detection's line. False after one trace line that says what failed; nothing is tried
    // again. Text fields need not be terminated. Throws only std::bad_alloc.
    bool WriteVirusLog(const AsDetectionRecord* record) const;

    // Appends line to the file of localTime's day with a single write. The folder is made when it is
    // missing.
    bool WriteVirusLogToFile(const SYSTEMTIME& localTime, const WString& line) const;

    // Keeps the detection as the last one in ardentis.ini, section Info: LastVirus, LastInfectFile and
    // LastTime (now, in seconds since 1970), in the system code page; then pulses the global event
    // Event_Refresh_Status, on which user interfaces read them again. Failures are not reported.
    void WriteLastFoudVirusAndNotifyToMainUI(const SYSTEMTIME& localTime, const WString& threat,
                                             const WString& file) const;
};
