// What the recording counterparts share: one log of everything the service does to them, and the
// instructions that make them misbehave.
//
// Both files lie in the folder of the running program. recorded.log holds one JSON object a line, in
// the order of the calls over all processes and threads; "from" and "call" name the entry point.
// recording.ini has one section for each entry point; [record] log= moves the log elsewhere.
#pragma once

#include "platform/win32.h"

#include <nlohmann/json.hpp>

namespace vlt::record
{

using Json = nlohmann::ordered_json;

// The program's folder, ending in a backslash.
WString Folder();

// Appends one line; safe between threads and processes.
void Write(const Json& line);

// An instruction, or the fallback.
WString Text(const char* section, const char* key, const WCHAR* fallback = TEXT(""));
std::int32_t Number(const char* section, const char* key, std::int32_t fallback);

// When the section says hold=1: returns only when the file "<section>.go" is in the folder (30 s at most).
void Hold(const char* section);

// Values for Write: null for a null pointer, hexadecimal digits for bytes.
Json Value(const WCHAR* text);
Json Value(const char* text);
std::string Hexadecimal(const void* data, std::size_t size);

} // namespace vlt::record
