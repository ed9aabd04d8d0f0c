// Text in and out: arguments are UTF-8, the system's text is UTF-16, output is UTF-8 bytes.
#pragma once

#include "suite/Channel/Text.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

using suite::FromUtf8;
using suite::Printable;
using suite::Utf8;

// Columns padded to the widest cell, two blanks apart; the last one is not padded. Widths count
// characters of UTF-8, not cells of the terminal.
std::string Table(const std::vector<std::vector<std::string>>& rows);

// Writes the text to standard output at once; a broken pipe ends the program quietly.
void Print(const std::string& text);

} // namespace vlt::ctl
