// Why an operation on the quarantine store failed.
#pragma once

#include "platform/win32.h"

// The values are those of CQuarantine's last error.
enum class QuarantineError : DWORD {
    None = 0,
    InvalidParameter = 1,
    NoLibrary = 3,
    Read = 6,
    Open = 8,
    MissingExport = 10,
    Config = 12,
    Scan = 13,
    NoUniqueName = 15,
    Write = 17,
    Version = 18,
    Action = 20,
    NoBackupInfo = 21,
    Move = 33,
    Semaphore = 34,
    Attributes = 35,
};
