// The text form of signatures, one to a line:
//
//     kind virus|spyware|packer|white|black      what the file holds (virus when it is not said)
//     version N                                  internal version; 100 belongs into "<stem>.001"
//     hex NAME [clean|clean=zero] [adware|dialer|tracker] 4D 5A ?? 90 ...
//     sha256 NAME [clean|clean=zero] [adware|dialer|tracker] [size=N] 64-HEX-DIGITS
//         clean: the matched bytes may be removed; clean=zero: they may be overwritten with zeros
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
