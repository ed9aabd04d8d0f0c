// Puts files away in encoded form and brings them back. Memory is bounded whatever their size.
#pragma once

#include "engine/ArdScanAbi.h"
#include "suite/ArdScan/EncodedFormat.h"
#include "suite/ArdScan/NewFile.h"

namespace vlt::scan
{

// Writes the encoded form of an open file to the destination, replacing what is there or else refusing to (`Exists`).
// AS_E_FILE when it cannot be read or written, or changes meanwhile. The file stays as it is.
enum class IfThere { Replace, Refuse };
AsError EncodeFile(CHostFile& source, const WString& originalPath, const HostPath& destination, IfThere ifThere);

// The header of an encoded file; nothing when it is not one, or has not the size that its header says.
std::optional<EncodedHeader> ReadEncodedFile(CHostFile& file);

// Brings the original back. The destination takes its name only when size and hash are right. Of a file that others
// may have written, owner, set-id bits and attributes of the system are not believed.
AsError RestoreFile(CHostFile& file, const HostPath& destination);

// Copies content and facts.
AsError CopyFileTo(CHostFile& source, const HostPath& destination, IfThere ifThere);

} // namespace vlt::scan
