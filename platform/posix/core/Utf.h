// UTF-8 and UTF-16, losslessly in both directions: a byte that is not part of valid UTF-8 becomes a
// lone low surrogate U+DC80 to U+DCFF and comes back as that byte; other lone surrogates become
// their three-byte form and come back. So every file name makes the round trip.
#pragma once

#include "platform/posix/win32/base.h"

#include <string>
#include <string_view>

namespace vlt::posix
{

std::u16string Utf16FromUtf8(std::string_view text);
std::string Utf8FromUtf16(std::u16string_view text);

// Simple case folding of one unit, for names that are compared ignoring case.
char16_t FoldCase(char16_t unit) noexcept;
std::u16string FoldCase(std::u16string_view text);

} // namespace vlt::posix
