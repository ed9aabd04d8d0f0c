// Full, short and temporary names, and drives.
#include "platform/Format.h"
#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/FileObject.h"
#include "platform/posix/win32/file.h"
#include "platform/posix/win32/kernel.h"
#include "platform/posix/win32/system.h"

#include <atomic>
#include <cerrno>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::posix
{

DWORD CopyPathText(const std::u16string& text, LPWSTR buffer, DWORD size)
{
    if (!buffer || size <= text.size())
        return static_cast<DWORD>(text.size() + 1);
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}

} // namespace vlt::posix

using namespace vlt::posix;

namespace
{

std::u16string_view View(LPCWSTR text)
{
    return text ? std::u16string_view(text) : std::u16string_view();
}

// The first number tried is random, so that two processes seldom meet.
WORD FirstNumber()
{
    static std::atomic<WORD> next{[] {
        WORD start = 0;
        return getrandom(&start, sizeof start, GRND_NONBLOCK) == sizeof start ? start : static_cast<WORD>(getpid());
    }()};
    return next.fetch_add(1, std::memory_order_relaxed);
}

std::u16string NumberedName(std::u16string_view prefix, WORD number)
{
    return std::u16string(prefix) + vlt::Format(u"%X.tmp", number);
}

// Makes an empty file; false with ERROR_FILE_EXISTS when the name is taken. Nobody can be denied it: it is
// not even opened.
bool MakeEmptyFile(const std::u16string& text)
{
    const auto path = ParsePath(text);
    if (!path)
        return false;
    const FoundPath found = FindNewPath(*path);
    if (!found.exists && (!found.parentExists || !IsCreatable(*path))) {
        SetMissingError(*path, found);
        return false;
    }
    if (found.exists || mknod(found.host.c_str(), S_IFREG | 0666, 0) != 0) {
        SetLastError(found.exists ? ERROR_FILE_EXISTS : ErrorFromErrno(errno));
        return false;
    }
    return true;
}

// Sets the last error when it is none.
bool IsFolderForNames(LPCWSTR folder)
{
    const auto entry = FindEntry(*folder == 0 ? u"." : folder);
    if (entry && entry->IsFolder())
        return true;
    SetLastError(ERROR_DIRECTORY);
    return false;
}

UINT DriveType(std::u16string_view root)
{
    if (root.empty())
        return DRIVE_FIXED; // of the current directory
    if (root.size() < 2 || root[1] != u':' || (root.size() > 2 && !(root.size() == 3 && IsSeparator(root[2]))))
        return DRIVE_NO_ROOT_DIR;
    const char16_t drive = FoldCase(root[0]);
    return drive == u'c' || drive == u'z' ? DRIVE_FIXED : DRIVE_NO_ROOT_DIR;
}

} // namespace

DWORD GetFullPathNameW(LPCWSTR text, DWORD size, LPWSTR buffer, LPWSTR* filePart)
{
    if (filePart)
        *filePart = nullptr;
    const auto path = ParsePath(View(text), 0);
    if (!path) {
        if (View(text).empty())
            SetLastError(ERROR_INVALID_NAME);
        return 0;
    }
    const std::u16string full = path->Text();
    const DWORD length = CopyPathText(full, buffer, size);
    if (filePart && length == full.size() && full.back() != u'\\')
        *filePart = buffer + full.rfind(u'\\') + 1;
    return length;
}

DWORD GetShortPathNameW(LPCWSTR path, LPWSTR buffer, DWORD size)
{
    if (!path) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return FindEntry(path) ? CopyPathText(path, buffer, size) : 0;
}

DWORD GetTempPathW(DWORD size, LPWSTR buffer)
{
    std::u16string folder;
    for (const char16_t* name : {u"TMP", u"TEMP"}) {
        WCHAR value[MAX_PATH];
        const DWORD length = GetEnvironmentVariableW(name, value, MAX_PATH);
        if (length > 0 && length < MAX_PATH && View(value).find(u':') == 1) {
            folder.assign(value, length);
            break;
        }
    }
    if (folder.empty()) {
        // The system's own, below the machine root: a host's TMPDIR may be another file system.
        folder = u"C:\\Windows\\Temp";
        CreateDirectoryW(u"C:\\Windows", nullptr);
        CreateDirectoryW(folder.c_str(), nullptr);
    }
    const auto path = ParsePath(folder, 0);
    if (!path)
        return 0;
    std::u16string text = path->Text();
    if (text.back() != u'\\')
        text += u'\\';
    return CopyPathText(text, buffer, size);
}

UINT GetTempFileNameW(LPCWSTR folder, LPCWSTR prefix, UINT unique, LPWSTR result)
{
    constexpr std::size_t kLongestName = 14; // three letters, eight, a dot, three and a slash
    if (!folder || !result) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::u16string base(folder);
    if (base.size() > MAX_PATH - kLongestName) {
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return 0;
    }
    if (!base.empty() && !IsSeparator(base.back()))
        base += u'\\';
    const std::u16string_view letters = View(prefix).substr(0, 3);
    if (unique != 0) { // only the name is asked for
        if (!IsFolderForNames(folder))
            return 0;
        const std::u16string text = base + NumberedName(letters, static_cast<WORD>(unique));
        CopyPathText(text, result, MAX_PATH);
        return unique;
    }
    for (unsigned tries = 0; tries < 0x10000; ++tries) {
        const WORD number = FirstNumber();
        if (number == 0)
            continue;
        const std::u16string text = base + NumberedName(letters, number);
        if (MakeEmptyFile(text)) {
            CopyPathText(text, result, MAX_PATH);
            return number;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_EXISTS)
            continue;
        // Asked only now: usually the file can be made, which tells the same.
        if (IsFolderForNames(folder))
            SetLastError(error);
        return 0;
    }
    SetLastError(ERROR_FILE_EXISTS);
    return 0;
}

UINT GetDriveTypeW(LPCWSTR root)
{
    return DriveType(View(root));
}
UINT GetDriveTypeA(LPCSTR root)
{
    return DriveType(Utf16FromUtf8(root ? root : ""));
}
