#include "tests/service/recording/Recorder.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <vector>

namespace vlt::record
{
namespace
{

constexpr ULONGLONG DeadlineMilliseconds = 30000;

WString IniFile()
{
    return Folder() + TEXT("recording.ini");
}

// Halves of surrogate pairs, which have no UTF-8 form, become question marks.
std::string Quoted(WString text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool pair = text[i] >= 0xD800 && text[i] < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                          text[i + 1] < 0xE000;
        if (pair)
            ++i;
        else if (text[i] >= 0xD800 && text[i] < 0xE000)
            text[i] = '?';
    }
    std::string result = "\"";
    for (const char c : ToNarrow(text, CP_UTF8)) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (static_cast<unsigned char>(c) < 0x20)
            result += Format("\\u%04x", static_cast<unsigned>(c));
        else
            result += c;
    }
    return result + '"';
}

} // namespace

WString Folder()
{
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const WString text(path);
    return text.substr(0, text.find_last_of(TEXT("\\/")) + 1);
}

Field::Field(const char* name, const char* text) : key(name), json(text ? Quoted(ToWide(text)) : "null") {}

Field::Field(const char* name, const WCHAR* text) : key(name), json(text ? Quoted(text) : "null") {}

void Write(const char* from, const char* call, Fields first, Fields more)
{
    static const WString path = Text("record", "log", (Folder() + TEXT("recorded.log")).c_str());
    std::string bytes = Format("{\"from\":\"%s\",\"thread\":%u,\"call\":\"%s\"", from, GetCurrentThreadId(), call);
    for (const Fields& fields : {first, more}) {
        for (const Field& field : fields)
            bytes += ",\"" + std::string(field.key) + "\":" + field.json;
    }
    bytes += "}\n";
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
