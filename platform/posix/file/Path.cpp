#include "platform/posix/file/Path.h"

#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/FolderNames.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vlt::posix
{
namespace
{

// Stands for a backslash within a host name, which no Windows name can hold.
constexpr char16_t BackslashEscape = 0xDC5C;
constexpr std::string_view BackslashEscapeBytes = "\xED\xB1\x9C";

std::nullopt_t Fail(DWORD code) noexcept
{
    SetLastError(code);
    return std::nullopt;
}

const std::string& DriveCFolder()
{
    static const std::string& folder = *new std::string(MachineFolder("drives") + "/c");
    return folder;
}

// The same folder without links, as the kernel names it in /proc and getcwd.
const std::string& RealDriveCFolder()
{
    static const std::string& folder = *new std::string([] {
        const std::unique_ptr<char, void (*)(void*)> real(realpath(DriveCFolder().c_str(), nullptr), &free);
        return real ? std::string(real.get()) : DriveCFolder();
    }());
    return folder;
}

bool IsBelow(std::string_view path, std::string_view folder)
{
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

template <typename Char>
std::vector<std::basic_string_view<Char>> Split(std::basic_string_view<Char> text, bool (*isSeparator)(Char))
{
    std::vector<std::basic_string_view<Char>> parts;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && !isSeparator(text[end]))
            ++end;
        if (end > at)
            parts.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

bool IsSlash(char c)
{
    return c == '/';
}
bool IsAnySeparator(char16_t c)
{
    return IsSeparator(c);
}

void AppendNames(std::vector<std::u16string>& names, std::u16string_view text, bool literal)
{
    for (const std::u16string_view part : Split<char16_t>(text, &IsAnySeparator)) {
        if (literal || (part != u"." && part != u".."))
            names.emplace_back(part);
        else if (part == u".." && !names.empty())
            names.pop_back();
    }
}

FullPath FullPathFromHost(std::string_view host)
{
    FullPath path;
    path.drive = u'Z';
    for (const std::string* folder : {&DriveCFolder(), &RealDriveCFolder()}) {
        if (IsBelow(host, *folder)) {
            path.drive = u'C';
            host.remove_prefix(folder->size());
            break;
        }
    }
    for (const std::string_view name : Split<char>(host, &IsSlash))
        path.names.push_back(WindowsName(name));
    return path;
}

bool IsLetter(char16_t c) noexcept
{
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

// Follows links. The root may be given as the empty text.
bool IsFolder(const std::string& host, struct stat& status) noexcept
{
    return stat(host.empty() ? "/" : host.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The name in the folder that is equal but for its case; empty when there is none.
std::string FindOtherCase(const std::string& folder, const struct stat& status, std::u16string_view name)
{
    const char* const path = folder.empty() ? "/" : folder.c_str();
    if (std::optional<std::string> known = FolderNames::Instance().Find(path, status, name))
        return *std::move(known);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(path), &closedir);
    if (!entries)
        return {};
    const std::u16string folded = FoldCase(name);
    while (const dirent* entry = readdir(entries.get())) {
        if (FoldCase(WindowsName(entry->d_name)) == folded)
            return entry->d_name;
    }
    return {};
}

} // namespace

FullPath CurrentPath()
{
    const std::unique_ptr<char, void (*)(void*)> current(getcwd(nullptr, 0), &free);
    return FullPathFromHost(current ? std::string_view(current.get()) : std::string_view("/"));
}

std::u16string WindowsName(std::string_view hostName)
{
    std::u16string name = Utf16FromUtf8(hostName);
    if (hostName.find(BackslashEscapeBytes) != std::string_view::npos) {
        // A host name with the escape's own bytes: those are escaped one by one.
        for (std::size_t at = 0; (at = name.find(BackslashEscape, at)) != std::u16string::npos; at += 3)
            name.replace(at, 1, u"\xDCED\xDCB1\xDC9C");
    }
    std::replace(name.begin(), name.end(), u'\\', BackslashEscape);
    return name;
}

std::string HostName(std::u16string_view name)
{
    std::string host = Utf8FromUtf16(name);
    if (name.find(BackslashEscape) == std::u16string_view::npos)
        return host;
    // A pair's second half may be the same unit, so the text is cut at lone ones only.
    host.clear();
    std::size_t start = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool paired = i > 0 && name[i - 1] >= 0xD800 && name[i - 1] <= 0xDBFF;
        if (name[i] != BackslashEscape || paired)
            continue;
        host += Utf8FromUtf16(name.substr(start, i - start));
        host += '\\';
        start = i + 1;
    }
    return host + Utf8FromUtf16(name.substr(start));
}

std::u16string FullPath::Text() const
{
    std::u16string text{drive, u':'};
    text.reserve(TextLength());
    for (const std::u16string& name : names)
        (text += u'\\') += name;
    if (names.empty() || trailingSlash)
        text += u'\\';
    return text;
}

std::size_t FullPath::TextLength() const noexcept
{
    std::size_t length = 2;
    for (const std::u16string& name : names)
        length += 1 + name.size();
    return length + (names.empty() || trailingSlash ? 1 : 0);
}

std::string FullPath::DriveFolder() const
{
    return drive == u'C' ? DriveCFolder() : std::string();
}

std::string FullPath::ExactHostPath() const
{
    std::string host = DriveFolder();
    for (const std::u16string& name : names)
        (host += '/') += HostName(name);
    return host.empty() ? "/" : host;
}

std::optional<FullPath> ParsePath(std::u16string_view text, std::size_t limit)
{
    if (text.empty())
        return Fail(ERROR_PATH_NOT_FOUND);
    if (text.find(u'\0') != std::u16string_view::npos)
        return Fail(ERROR_INVALID_NAME);
    const bool twoSlashes = text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1]);
    const bool literal = twoSlashes && text.size() >= 4 && text[2] == u'?' && IsSeparator(text[3]);
    if (literal)
        text.remove_prefix(4);
    else if (twoSlashes)
        return Fail(text.size() >= 3 && text[2] == u'.' ? ERROR_NOT_SUPPORTED : ERROR_BAD_NETPATH);

    FullPath path;
    const bool hasDrive = text.size() >= 2 && IsLetter(text[0]) && text[1] == u':';
    char16_t drive = 0;
    if (hasDrive) {
        drive = static_cast<char16_t>(text[0] & ~0x20);
        if (drive != u'C' && drive != u'Z')
            return Fail(ERROR_PATH_NOT_FOUND);
        text.remove_prefix(2);
    }
    const bool rooted = !text.empty() && IsSeparator(text[0]);
    if (literal && !(hasDrive && rooted))
        return Fail(ERROR_BAD_NETPATH);
    if (!hasDrive || !rooted) {
        path = CurrentPath();
        // Only the current drive has a current directory; the other one's is its root.
        if (rooted || (hasDrive && drive != path.drive))
            path.names.clear();
    }
    if (hasDrive)
        path.drive = drive;
    AppendNames(path.names, text, literal);
    path.trailingSlash = !path.names.empty() && !text.empty() && IsSeparator(text.back());
    if (!literal && limit != 0 && path.TextLength() >= limit)
        return Fail(ERROR_PATH_NOT_FOUND);
    constexpr std::size_t BytesOfUnit = 3; // at most
    for (const std::u16string& name : path.names) {
        if (literal && (name == u"." || name == u".." || name.find(u'/') != std::u16string::npos))
            return Fail(ERROR_INVALID_NAME);
        if (name.size() > NAME_MAX / BytesOfUnit && HostName(name).size() > NAME_MAX)
            return Fail(ERROR_INVALID_NAME);
    }
    return path;
}

FoundPath FindPath(const FullPath& path)
{
    FoundPath found;
    found.host = path.ExactHostPath();
    if (lstat(found.host.c_str(), &found.status) == 0 || path.names.empty()) {
        found.exists = true;
        return found;
    }
    // Usually only the last name is missing, and all that lead to it are exact.
    const std::size_t last = path.names.size() - 1;
    std::string host = found.host.substr(0, found.host.rfind('/'));
    struct stat folder;
    bool inFolder = IsFolder(host, folder);
    const bool exactFolder = inFolder;
    std::size_t i = last;
    if (!exactFolder) {
        host = path.DriveFolder();
        inFolder = IsFolder(host, folder);
        i = 0;
    }
    for (; i <= last; ++i) {
        const std::string exact = HostName(path.names[i]);
        const std::string parent = std::exchange(host, host + '/' + exact);
        if (!exactFolder && lstat(host.c_str(), &found.status) == 0) {
            inFolder = IsFolder(host, folder);
            continue;
        }
        const std::string other = inFolder ? FindOtherCase(parent, folder, path.names[i]) : std::string();
        if (other.empty())
            break;
        host = parent + '/' + other;
        if (lstat(host.c_str(), &found.status) != 0)
            break; // gone meanwhile
        inFolder = IsFolder(host, folder);
    }
    found.exists = i > last;
    found.parentExists = found.exists || (i == last && inFolder);
    while (++i <= last)
        (host += '/') += HostName(path.names[i]);
    found.host = std::move(host);
    return found;
}

FoundPath FindNewPath(const FullPath& path)
{
    FoundPath found;
    if (!path.names.empty()) {
        found.host = path.ExactHostPath();
        struct stat folder;
        if (IsFolder(found.host.substr(0, found.host.rfind('/')), folder) &&
            FolderNames::Instance().IsKnownMissing(folder, path.names.back()))
            return found;
    }
    return FindPath(path);
}

bool IsCreatable(const FullPath& path) noexcept
{
    if (path.names.empty() || path.drive != u'C')
        return true;
    const std::u16string& name = path.names.back();
    return std::none_of(name.begin(), name.end(), [](char16_t c) {
        return c < 0x20 || c == u'<' || c == u'>' || c == u':' || c == u'"' || c == u'|' || c == u'?' || c == u'*';
    });
}

DWORD SetMissingError(const FullPath& path, const FoundPath& found) noexcept
{
    DWORD code = ERROR_PATH_NOT_FOUND;
    if (found.parentExists)
        code = IsCreatable(path) ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_NAME;
    SetLastError(code);
    return code;
}

std::string HostPathFromWindows(std::u16string_view text)
{
    const std::optional<FullPath> path = ParsePath(text);
    return path ? FindPath(*path).host : std::string();
}

std::u16string WindowsPathFromHost(std::string_view host)
{
    return FullPathFromHost(host).Text();
}

} // namespace vlt::posix
