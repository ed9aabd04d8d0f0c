// Text for people and the system's words, shared by the programs that show what they hear.
#pragma once

#include "platform/win32.h"

#include <stdexcept>
#include <string>

namespace vlt::suite
{

WString FromUtf8(const std::string& text);

// UTF-8 as it is, for JSON and files.
std::string Utf8(WStringView text);

// UTF-8 for a terminal: control characters, invisible direction marks and halves of surrogate pairs
// become \uXXXX, so a hostile file or threat name can neither hide itself nor drive the terminal.
std::string Printable(WStringView text);

// The system's text for an error code without its line break; "error" when it has none.
std::string SystemText(DWORD systemError);

// A call of the system that failed; the message is "what: text (code)".
class SystemFailure : public std::runtime_error
{
public:
    SystemFailure(DWORD code, const std::string& what);
    DWORD Code() const noexcept { return m_code; }

private:
    DWORD m_code;
};
[[noreturn]] void FailWith(DWORD systemError, const std::string& what);

} // namespace vlt::suite
