// The system's event log, and the texts of errors that go into it.
#pragma once

#include "platform/win32.h"

namespace vlt
{

// Key name of the service, and the name it is shown under, which is also its event source.
inline constexpr const WCHAR* kServiceName = TEXT("Vlntsrv");
inline constexpr const WCHAR* kServiceDisplayName = TEXT("Veltrano Realtime Service");

// The system's text of an error code, ending in CR LF; empty when it has none.
WString SystemMessage(DWORD code);

// "operation failed: text of the code"; the operation alone when the code is 0.
WString ErrorText(LPCWSTR operation, DWORD code);

// Writes one event with the text as its only insertion string. An event whose source cannot be opened
// is lost silently.
void LogEvent(LPCWSTR source, LPCWSTR text, DWORD eventId, bool isError);

} // namespace vlt
