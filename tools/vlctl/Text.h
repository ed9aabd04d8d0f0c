// Text in and out: arguments are UTF-8, the system's text is UTF-16, output is UTF-8 bytes.
#pragma once

#include "platform/win32.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

WString FromUtf8(const std::string& text);

// UTF-8 as it is, for JSON and files.
std::string Utf8(WStringView text);

// UTF-8 for a terminal: control characters, invisible direction marks and halves of surrogate pairs
// become \uXXXX, so a hostile file or threat name can neither hide itself nor drive the terminal.
std::string Printable(WStringView text);

// Columns padded to the widest cell, two blanks apart; the last one is not padded. Widths count
// characters of UTF-8, not cells of the terminal.
std::string Table(const std::vector<std::vector<std::string>>& rows);

// Writes the text to standard output at once; a broken pipe ends the program quietly.
void Print(const std::string& text);

} // namespace vlt::ctl
