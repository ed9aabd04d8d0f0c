#include "tests/service/recording/Recorder.h"

#include "platform/Text.h"
#include "platform/Unique.h"

namespace vlt::record
{
namespace
{

constexpr ULONGLONG DeadlineMilliseconds = 30000;

WString IniFile()
{
    return Folder() + TEXT("recording.ini");
}

} // namespace

WString Folder()
{
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const WString text(path);
    return text.substr(0, text.find_last_of(TEXT("\\/")) + 1);
}

void Write(const Json& line)
{
    static const WString path = Text("record", "log", (Folder() + TEXT("recorded.log")).c_str());
    const std::string bytes = line.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
    // Sharing for reading alone makes the open file the lock between threads and processes.
    const ULONGLONG deadline = GetTickCount64() + DeadlineMilliseconds;
    FileHandle file;
    while (!file && GetTickCount64() < deadline) {
        file.Reset(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file)
            Sleep(1);
    }
    DWORD written = 0;
    SetFilePointer(file.Get(), 0, nullptr, FILE_END);
    WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

WString Text(const char* section, const char* key, const WCHAR* fallback)
{
    std::vector<WCHAR> buffer(8192);
    const DWORD length = GetPrivateProfileStringW(ToWide(section).c_str(), ToWide(key).c_str(), fallback, buffer.data(),
                                                  static_cast<DWORD>(buffer.size()), IniFile().c_str());
    return WString(buffer.data(), length);
}

std::int32_t Number(const char* section, const char* key, std::int32_t fallback)
{
    return static_cast<std::int32_t>(
        GetPrivateProfileIntW(ToWide(section).c_str(), ToWide(key).c_str(), fallback, IniFile().c_str()));
}

void Hold(const char* section)
{
    if (Number(section, "hold", 0) == 0)
        return;
    const WString go = Folder() + ToWide(section) + TEXT(".go");
    const ULONGLONG deadline = GetTickCount64() + DeadlineMilliseconds;
    while (GetFileAttributesW(go.c_str()) == INVALID_FILE_ATTRIBUTES && GetTickCount64() < deadline)
        Sleep(1);
}

Json Value(const WCHAR* text)
{
    return text ? Json(ToNarrow(text, CP_UTF8)) : Json(nullptr);
}

Json Value(const char* text)
{
    return text ? Json(std::string(text)) : Json(nullptr);
}

std::string Hexadecimal(const void* data, std::size_t size)
{
    static constexpr char digits[] = "0123456789abcdef";
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

} // namespace vlt::record
