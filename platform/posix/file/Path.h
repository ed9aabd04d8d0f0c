// Windows paths and the host's.
//
// Drive C: is drives/c of the machine root, drive Z: the root of the file system. Both slashes are
// separators, doubled ones count once; "." and ".." are resolved in the text, before links are
// followed. Names are found ignoring case: the exact name first, then one of the folder that is equal
// but for its case. A name that does not exist keeps the case it was given.
//
// Every host name has exactly one Windows form and comes back from it: bytes that are not UTF-8 are
// U+DC80 to U+DCFF (core/Utf.h), a backslash is U+DC5C. Nothing is stripped from the end of a name,
// so "x." and "x " are files of their own here. The characters < > : " | ? * and control characters
// may occur in a name that exists; on drive C: a new one cannot be made with them.
//
// The current directory is that of the process (getcwd), whoever changed it.
#pragma once

#include "platform/posix/win32/base.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace vlt::posix
{

// The host path of a Windows path, whether it exists or not. Empty with the last error set when the
// text is no path of this machine (ERROR_INVALID_NAME, ERROR_PATH_NOT_FOUND for another drive or a
// path of MAX_PATH units and more, ERROR_BAD_NETPATH, ERROR_NOT_SUPPORTED for a device).
std::string HostPathFromWindows(std::u16string_view path);

// "C:\..." for what is below drives/c, "Z:\..." for all else. The host path must be absolute.
std::u16string WindowsPathFromHost(std::string_view host);

// One name, without separators.
std::u16string WindowsName(std::string_view hostName);
std::string HostName(std::u16string_view name);

// A path in full, its names not yet looked for.
struct FullPath {
    char16_t drive = u'C'; // C or Z
    std::vector<std::u16string> names;
    bool trailingSlash = false;

    std::u16string Text() const; // "C:\a\b"; the root and a path with a trailing slash end in one
    std::size_t TextLength() const noexcept;
    std::string ExactHostPath() const; // as the host would have it were every name exact
    std::string DriveFolder() const;   // host folder of the drive, without a trailing slash ("" for Z:)
};

// Nothing with the last error set as for HostPathFromWindows. A limit of 0 leaves the length free.
std::optional<FullPath> ParsePath(std::u16string_view path, std::size_t limit = MAX_PATH);

// The current directory of the process.
FullPath CurrentPath();

// Copies a path with its terminator and returns its length, or returns the size it needs.
DWORD CopyPathText(const std::u16string& text, LPWSTR buffer, DWORD size);

// What the names of a path lead to.
struct FoundPath {
    std::string host;
    bool exists = false;      // all names were found
    bool parentExists = true; // the folder of the last name was found
    struct stat status;       // when it exists: of the last name itself, which may be a link
};
FoundPath FindPath(const FullPath& path);

// The same for a path whose last name is to be made, so that it is probably missing.
FoundPath FindNewPath(const FullPath& path);

// The last error for a path whose last or earlier name is missing: ERROR_FILE_NOT_FOUND,
// ERROR_PATH_NOT_FOUND, or ERROR_INVALID_NAME for a name that cannot exist. Returns it.
DWORD SetMissingError(const FullPath& path, const FoundPath& found) noexcept;

// Whether a new file or folder may bear the path's last name; on drive Z: every name will do.
bool IsCreatable(const FullPath& path) noexcept;

inline bool IsSeparator(char16_t c) noexcept
{
    return c == u'\\' || c == u'/';
}

} // namespace vlt::posix
