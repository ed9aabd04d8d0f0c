// The private profile functions in both text forms, over ProfileFile.
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/ProfileFile.h"
#include "platform/posix/win32/file.h"

#include <algorithm>
#include <string>
#include <vector>

using vlt::posix::EditProfile;
using vlt::posix::ProfileText;
using vlt::posix::ReadProfile;

namespace
{

std::u16string InForm(const std::string& text, const WCHAR*)
{
    return vlt::posix::Utf16FromUtf8(text);
}
std::string InForm(const std::string& text, const char*)
{
    return text;
}

std::string Narrow(LPCWSTR text)
{
    return text ? vlt::posix::Utf8FromUtf16(text) : std::string();
}
std::string Narrow(LPCSTR text)
{
    return text ? text : "";
}

std::u16string WidePath(LPCWSTR path)
{
    return path ? path : u"";
}
std::u16string WidePath(LPCSTR path)
{
    return path ? vlt::posix::Utf16FromUtf8(path) : std::u16string();
}

// A text that does not fit is cut and terminated; the length returned is then size - 1.
template <typename Char>
DWORD CopyText(const std::basic_string<Char>& text, Char* buffer, DWORD size)
{
    if (!buffer || size == 0)
        return 0;
    const std::size_t length = std::min<std::size_t>(text.size(), size - 1);
    text.copy(buffer, length);
    buffer[length] = 0;
    return static_cast<DWORD>(length);
}

// Names each with its NUL and one NUL more; when cut, two NULs end the buffer and size - 2 is returned.
template <typename Char>
DWORD CopyNames(const std::vector<std::string>& names, Char* buffer, DWORD size)
{
    if (!buffer || size < 2) {
        if (buffer && size == 1)
            *buffer = 0;
        return 0;
    }
    std::basic_string<Char> all;
    for (const std::string& name : names) {
        all += InForm(name, buffer);
        all += Char();
    }
    const bool fits = all.size() < size;
    const std::size_t length = fits ? all.size() : size - 2;
    all.copy(buffer, length);
    buffer[length] = 0;
    if (!fits || all.empty())
        buffer[length + 1] = 0;
    return static_cast<DWORD>(length);
}

template <typename Char>
DWORD GetText(const Char* section, const Char* key, const Char* fallback, Char* buffer, DWORD size, const Char* file)
{
    const ProfileText text = ReadProfile(WidePath(file));
    if (!section)
        return CopyNames(text.Sections(), buffer, size);
    if (!key)
        return CopyNames(text.Keys(Narrow(section)), buffer, size);
    if (const auto value = text.Value(Narrow(section), Narrow(key)))
        return CopyText(InForm(*value, buffer), buffer, size);
    std::basic_string<Char> other = fallback ? fallback : std::basic_string<Char>();
    while (!other.empty() && other.back() == Char(' '))
        other.pop_back();
    return CopyText(other, buffer, size);
}

// The leading decimal number of a value, modulo 2^32; 0 when it begins with none.
template <typename Char>
UINT GetNumber(const Char* section, const Char* key, INT fallback, const Char* file)
{
    if (!section || !key)
        return static_cast<UINT>(fallback);
    const auto value = ReadProfile(WidePath(file)).Value(Narrow(section), Narrow(key));
    if (!value || value->empty())
        return static_cast<UINT>(fallback);
    std::size_t at = value->find_first_not_of(" \t");
    const bool negative = at != std::string::npos && (*value)[at] == '-';
    if (at != std::string::npos && (negative || (*value)[at] == '+'))
        ++at;
    UINT number = 0;
    for (; at < value->size() && (*value)[at] >= '0' && (*value)[at] <= '9'; ++at)
        number = number * 10 + static_cast<UINT>((*value)[at] - '0');
    return negative ? 0 - number : number;
}

template <typename Char>
BOOL WriteText(const Char* section, const Char* key, const Char* value, const Char* file)
{
    if (!section) {
        if (!key && !value)
            return TRUE; // flushes a cache that there is not
        SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    return EditProfile(WidePath(file), [&](ProfileText& text) {
        if (!key)
            return text.RemoveSection(Narrow(section));
        return value ? text.Set(Narrow(section), Narrow(key), Narrow(value))
                     : text.RemoveKey(Narrow(section), Narrow(key));
    });
}

} // namespace

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR buffer, DWORD size, LPCWSTR file)
{
    return GetText(section, key, fallback, buffer, size, file);
}

DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR fallback, LPSTR buffer, DWORD size, LPCSTR file)
{
    return GetText(section, key, fallback, buffer, size, file);
}

UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR file)
{
    return GetNumber(section, key, fallback, file);
}

UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT fallback, LPCSTR file)
{
    return GetNumber(section, key, fallback, file);
}

BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file)
{
    return WriteText(section, key, value, file);
}

BOOL WritePrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file)
{
    return WriteText(section, key, value, file);
}
