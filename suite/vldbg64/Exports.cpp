// vldbg64.dll: the trace sink. The entry points are those of ARDCommon/VlDebugAbi.h. None of them fails,
// throws, changes the last error or waits for another thread.
#include "ARDCommon/VlDebugAbi.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/vldbg64/LogFile.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

#ifdef _WIN32
#define VLT_EXPORT extern "C"
#else
#define VLT_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace
{

using namespace vlt;
using namespace vlt::debug;

constexpr std::size_t kMessageBytes = 2048;
constexpr DWORD kDumpBytes = 4096;
constexpr DWORD kDumpRow = 16;

HotSettings g_settings;
LogFile g_log;

class KeepLastError
{
public:
    ~KeepLastError() { SetLastError(m_error); }

private:
    DWORD m_error = GetLastError();
};

const char* TextOr(const char* text, const char* other)
{
    return text != nullptr && *text != '\0' ? text : other;
}

std::string Prefix(const char* sourceFile, int line, int level, const char* module)
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return Format("%04d-%02d-%02d %02d:%02d:%02d.%03d %5u.%-5u %2d %s %s(%d): ", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, GetCurrentProcessId(), GetCurrentThreadId(),
                  level, TextOr(module, "-"), TextOr(sourceFile, "?"), line);
}

// One trace is one line, whatever is in it.
void AppendPrintable(std::string& line, std::string_view text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    std::transform(text.begin(), text.end(), std::back_inserter(line), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F ? ' ' : c;
    });
}

// Null when a trace of that level is not recorded.
const Settings* Recording(int level)
{
    const Settings* const settings = g_settings.Current();
    return settings != nullptr && settings->on && level <= settings->level ? settings : nullptr;
}

void Trace(const char* sourceFile, int line, int level, const char* module, const char* format,
           va_list arguments) noexcept
try {
    const KeepLastError keepLastError;
    const Settings* const settings = Recording(level);
    if (settings == nullptr || format == nullptr)
        return;
    char message[kMessageBytes] = {};
    std::vsnprintf(message, sizeof message, format, arguments);
    std::string text = Prefix(sourceFile, line, level, module);
    AppendPrintable(text, message);
    g_log.Append(*settings, text + "\r\n");
} catch (...) {
    // Out of memory: the line is lost, the caller goes on.
}

void Begin(const char* settingsFile, BOOL hotSwitch) noexcept
try {
    const KeepLastError keepLastError;
    g_settings.Begin(ToWide(TextOr(settingsFile, "")), hotSwitch != FALSE);
} catch (...) {
}

std::string DumpRow(const BYTE* data, DWORD offset, DWORD size)
{
    std::string bytes, text;
    for (DWORD i = offset; i < std::min(size, offset + kDumpRow); ++i) {
        bytes += Format(" %02x", data[i]);
        text += data[i] >= 0x20 && data[i] < 0x7F ? static_cast<char>(data[i]) : '.';
    }
    return Format("    %04x%-48s  %s\r\n", offset, bytes, text);
}

} // namespace

VLT_EXPORT void __cdecl InitDebug(const char* settingsFile, BOOL hotSwitch)
{
    Begin(settingsFile, hotSwitch);
}

VLT_EXPORT void __cdecl InitDebugEx(const char* settingsFile, BOOL hotSwitch, const char*, int)
{
    Begin(settingsFile, hotSwitch); // each trace names its module anew
}

VLT_EXPORT void __cdecl TraceA(const char* sourceFile, int line, int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Trace(sourceFile, line, level, nullptr, format, arguments);
    va_end(arguments);
}

VLT_EXPORT void __cdecl TraceExA(const char* sourceFile, int line, int level, const char* moduleName, int,
                                 const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Trace(sourceFile, line, level, moduleName, format, arguments);
    va_end(arguments);
}

VLT_EXPORT void __cdecl DumpA(const char* sourceFile, int line, int level, const void* data, DWORD size)
try {
    const KeepLastError keepLastError;
    const Settings* const settings = Recording(level);
    if (settings == nullptr || data == nullptr)
        return;
    const DWORD shown = std::min(size, kDumpBytes);
    std::string text = Prefix(sourceFile, line, level, nullptr) + Format("%u of %u bytes\r\n", shown, size);
    for (DWORD offset = 0; offset < shown; offset += kDumpRow)
        text += DumpRow(static_cast<const BYTE*>(data), offset, shown);
    g_log.Append(*settings, text);
} catch (...) {
}
