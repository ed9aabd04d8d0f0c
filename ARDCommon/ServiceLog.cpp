#include "ARDCommon/ServiceLog.h"

#include "ARDCommon/ProgramFolder.h"
#include "platform/Unique.h"

#include <algorithm>

namespace
{

constexpr int kLineBytes = 1024;

// As much of the line as fits into the buffer, in the system code page. A conversion into a buffer that
// is too small fails as a whole, so characters are taken off the end until it succeeds.
DWORD ToBytes(const WString& line, char (&bytes)[kLineBytes])
{
    for (int length = static_cast<int>(std::min<std::size_t>(line.size(), kLineBytes - 1)); length > 0; --length) {
        const int count = WideCharToMultiByte(CP_ACP, 0, line.data(), length, bytes, kLineBytes - 1, nullptr, nullptr);
        if (count > 0)
            return static_cast<DWORD>(count);
    }
    return 0;
}

} // namespace

DWORD WriteServiceLogV(LPCWSTR format, vlt::FormatArgs args)
{
    // The folder's own backslash makes two of them, which the file system takes as one.
    const WString path = vlt::ProgramFolder() + TEXT("\\VLNTSRV.LOG");
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return 0;

    SYSTEMTIME now{};
    GetLocalTime(&now);
    const WString prefix =
        vlt::Format(TEXT("%04d/%02d/%02d %02d:%02d "), now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute);
    const WString line = vlt::Format(TEXT("%s%s\r\n"), prefix, vlt::FormatV(format, args));

    const vlt::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return 0;
    char bytes[kLineBytes];
    const DWORD count = ToBytes(line, bytes);
    DWORD written = 0;
    SetFilePointer(file.Get(), 0, nullptr, FILE_END);
    if (!WriteFile(file.Get(), bytes, count, &written, nullptr))
        return 0;
    return written;
}
