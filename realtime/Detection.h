// What the service does when the scan library reports a threat, and when it reports what it scanned.
//
// The callback runs on the library's threads, several at once, while the program that opened the file
// waits: it takes no lock, waits for nothing and lets no exception out. The log line is written by a
// short-lived thread of its own, which nobody waits for.
#pragma once

#include "engine/ArdScanAbi.h"

// In both detection slots of the configuration record. The record is copied, never kept.
void CALLBACK RealTimeScanVirusCallBack(void* context, const AsDetectionRecord* record) noexcept;

// In the last-scan slot: keeps the file as the last scanned one in the registry. Any thread.
void CALLBACK SetLastScanInfo(const WCHAR* fileName, void* context) noexcept;

// Thread procedure. Takes the heap copy of a detection (new AsDetectionRecord), appends it to the day's
// virus log and frees it. 0, or 1 when the log object could not be made.
unsigned __stdcall ThreadWriteVirusLogForRealTimeScan(void* recordCopy);

// The detection's file for display: "infected path (second path)" when there is a second path, else the
// infected path; cut to capacity (characters, with the terminator). Returns 0 and leaves the buffer
// alone when there is a second path but no infected one; otherwise 1.
int GetDetectFileText(const AsDetectionRecord& record, LPWSTR buffer, std::size_t capacity);
