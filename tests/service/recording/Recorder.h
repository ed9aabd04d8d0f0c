// What the recording counterparts share: one log of everything the service does to them, and the
// instructions that make them misbehave.
//
// Both files lie in the folder of the running program. recorded.log holds one JSON object a line, in
// the order of the calls over all processes and threads; "from" and "call" name the entry point, "thread"
// the calling thread.
// recording.ini has one section for each entry point; [record] log= moves the log elsewhere.
#pragma once

#include "platform/win32.h"

#include <initializer_list>
#include <string>
#include <type_traits>

namespace vlt::record
{

// One member of a line: a key and its value as JSON text.
struct Field {
    const char* key;
    std::string json;

    Field(const char* name, const char* text);  // null for a null pointer
    Field(const char* name, const WCHAR* text); // in UTF-8
    Field(const char* name, const std::string& text) : Field(name, text.c_str()) {}
    template <typename T>
    requires std::is_arithmetic_v<T> Field(const char* name, T value) : key(name), json(std::to_string(value))
    {
        if constexpr (std::is_same_v<T, bool>)
            json = value ? "true" : "false";
    }
};
using Fields = std::initializer_list<Field>;

// The program's folder, ending in a backslash.
WString Folder();

// Appends one line; safe between threads and processes.
void Write(const char* from, const char* call, Fields first = {}, Fields more = {});

// An instruction, or the fallback.
WString Text(const char* section, const char* key, const WCHAR* fallback = TEXT(""));
std::int32_t Number(const char* section, const char* key, std::int32_t fallback);

// When the section says hold=1: returns only when the file "<section>.go" is in the folder (30 s at most).
void Hold(const char* section);

// Bytes as hexadecimal digits.
std::string Hexadecimal(const void* data, std::size_t size);

} // namespace vlt::record
