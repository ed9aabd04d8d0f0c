// The text form of signatures, one to a line:
//
//     kind virus|spyware|packer|white|black      what the file holds (virus when it is not said); comes first
//     version N                                  internal version; 100 belongs into "<stem>.001"
//     hex NAME [OPTION...] 4D 5A ?? 90 ...       bytes, "??" being any
//     text NAME [OPTION...] "..."                the same in ASCII, to the last quote of the line
//     sha256 NAME [OPTION...] [size=N] 64-HEX-DIGITS
//         clean: the matched bytes may be removed; clean=zero: they may be overwritten with zeros
//         adware, dialer, tracker: what it is; one of them is needed in a spyware file and none elsewhere
//         crash: finding it crashes the engine. For tests of what the suite does about a bad pattern
//     # comment; "\" at the end of a line joins the next
#pragma once

#include "suite/Common/PatternFile.h"

#include <string>
#include <string_view>

namespace vlt::scan
{

// Nothing on an error, which then is described with its line number.
std::optional<PatternFile> ParseSignatures(std::string_view text, std::string& error);

} // namespace vlt::scan
