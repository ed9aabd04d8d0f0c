// The service text log, VLNTSRV.LOG in the program folder: a few milestones for whoever looks after
// the machine. It is switched on by creating an empty file of that name.
#pragma once

#include "platform/Format.h"
#include "platform/win32.h"

// Appends "YYYY/MM/DD hh:mm message\r\n" in local time and the system code page, at most 1023 bytes.
// Messages end in CR LF themselves, so an empty line follows each. Returns the bytes written, 0 when
// the file does not exist or cannot be written; another writer at the same instant loses its line.
// May be called from any thread.
DWORD WriteServiceLogV(LPCWSTR format, vlt::FormatArgs args);

template <typename... Args>
DWORD WriteServiceLog(LPCWSTR format, const Args&... args)
{
    const std::array<vlt::FormatArg, sizeof...(Args)> list{vlt::FormatArg(args)...};
    return WriteServiceLogV(format, vlt::FormatArgs(list.data(), list.size()));
}
