// Paths and files, as several classes need them.
#pragma once

#include "platform/win32.h"

namespace VlFile
{

// Where the name begins in a path: after its last separator or drive.
std::size_t NamePosition(WStringView path);

// Begins with a drive or a separator.
bool IsAbsolute(WStringView path);

// A name that cannot lead out of its folder. For names from records, which others may have written.
bool IsPlainName(WStringView name);

bool Exists(const WString& file);

// Deletes a file whatever its attributes. Sets the last error.
bool Delete(const WString& file);

// Deletes the files, not the folders, that the pattern matches. True when it matched anything.
bool DeleteMatching(const WString& folder, LPCWSTR pattern);

} // namespace VlFile
