#include "suite/vldbg64/LogFile.h"

#include "platform/Format.h"
#include "platform/Unique.h"
#include "suite/Channel/SharedObjects.h"

namespace vlt::debug
{
namespace
{

constexpr ULONGLONG kPause = 1000;    // milliseconds after a failure
constexpr unsigned kOpenAttempts = 5; // a millisecond apart: somebody may be renaming or reading it
constexpr unsigned kOverrun = 4;      // times the size, when the file cannot be put aside

FileHandle OpenEnd(const WString& path, DWORD disposition)
{
    return FileHandle(CreateFileW(path.c_str(), FILE_APPEND_DATA,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

FileHandle OpenPatiently(const WString& path)
{
    for (unsigned attempt = 1;; ++attempt) {
        FileHandle file = OpenEnd(path, OPEN_ALWAYS);
        if (file || attempt == kOpenAttempts)
            return file;
        switch (GetLastError()) {
        case ERROR_PATH_NOT_FOUND:
            if (!CreateDirectoryW(path.substr(0, path.rfind(TEXT('\\'))).c_str(), nullptr) &&
                GetLastError() != ERROR_ALREADY_EXISTS)
                return file;
            break;
        case ERROR_SHARING_VIOLATION:
        case ERROR_ACCESS_DENIED: // a file that is being deleted
            Sleep(1);
            break;
        default:
            return file;
        }
    }
}

LONGLONG SizeOf(const FileHandle& file)
{
    LARGE_INTEGER size{};
    return file && GetFileSizeEx(file.Get(), &size) ? size.QuadPart : 0;
}

// One for each file, whatever the letter case in which processes name it.
WString MutexName(WString path)
{
    CharLowerBuffW(path.data(), static_cast<DWORD>(path.size()));
    ULONGLONG hash = 0xCBF29CE484222325u;
    for (const WCHAR unit : path)
        hash = (hash ^ unit) * 0x100000001B3u;
    return Format(TEXT("Global\\vldbg64_%08x%08x"), static_cast<DWORD>(hash >> 32), static_cast<DWORD>(hash));
}

WString OldName(const WString& path, unsigned number)
{
    return Format(TEXT("%s.%u"), path, number);
}

bool Exists(const WString& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// From the first gap on, so a rotation that was cut short costs no file.
bool Shift(const WString& path, unsigned oldFiles)
{
    unsigned free = 1;
    while (free <= oldFiles && Exists(OldName(path, free)))
        ++free;
    if (free > oldFiles) {
        free = oldFiles;
        if (!DeleteFileW(OldName(path, free).c_str()))
            return false;
    }
    for (; free > 1; --free) {
        if (!MoveFileW(OldName(path, free - 1).c_str(), OldName(path, free).c_str()))
            return false;
    }
    return MoveFileW(path.c_str(), OldName(path, 1).c_str()) != FALSE;
}

} // namespace

void LogFile::Append(const Settings& settings, std::string_view lines)
{
    if (GetTickCount64() < m_quietUntil.load(std::memory_order_relaxed) || !Write(settings, lines))
        ++m_lost;
}

bool LogFile::Write(const Settings& settings, std::string_view lines)
{
    const FileHandle file = OpenPatiently(settings.logFile);
    const unsigned lost = m_lost.exchange(0);
    std::string text;
    if (lost != 0)
        text = Format("%u traces could not be written\r\n", lost);
    text += lines;
    DWORD written = 0;
    if (!file || !WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) {
        m_lost += lost;
        m_quietUntil = GetTickCount64() + kPause;
        return false;
    }
    const LONGLONG size = SizeOf(file);
    if (size >= settings.maxBytes && !PutAside(settings) && size / kOverrun >= settings.maxBytes)
        m_quietUntil = GetTickCount64() + kPause;
    return true;
}

// False when the file stays although it is too large. Another that is at it counts as success.
bool LogFile::PutAside(const Settings& settings)
{
    const ULONGLONG now = GetTickCount64();
    if (now < m_noRotationUntil.load(std::memory_order_relaxed))
        return false;
    const KernelHandle mutex = suite::ShareMutex(MutexName(settings.logFile));
    const DWORD taken = WaitForSingleObject(mutex.Get(), 0);
    if (taken == WAIT_TIMEOUT)
        return true;
    if (taken == WAIT_OBJECT_0 || taken == WAIT_ABANDONED) {
        // It may have been done since this thread wrote its line.
        const bool done = SizeOf(OpenEnd(settings.logFile, OPEN_EXISTING)) < settings.maxBytes ||
                          Shift(settings.logFile, settings.oldFiles);
        ReleaseMutex(mutex.Get());
        if (done)
            return true;
    }
    m_noRotationUntil = now + kPause;
    return false;
}

} // namespace vlt::debug
