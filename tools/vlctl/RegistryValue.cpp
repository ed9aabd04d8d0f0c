#include "tools/vlctl/RegistryValue.h"

#include "platform/Format.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <cctype>
#include <charconv>
#include <cstring>
#include <limits>

namespace vlt::ctl
{
namespace
{

struct NamedType {
    const char* name;
    DWORD type;
};
constexpr NamedType Types[] = {{"sz", REG_SZ},         {"dword", REG_DWORD},    {"qword", REG_QWORD},
                               {"binary", REG_BINARY}, {"multi", REG_MULTI_SZ}, {"expand", REG_EXPAND_SZ}};

template <typename T>
void AppendBytes(std::vector<BYTE>& data, const T* items, std::size_t count)
{
    const auto* bytes = reinterpret_cast<const BYTE*>(items);
    data.insert(data.end(), bytes, bytes + count * sizeof(T));
}

template <typename T>
void AppendNumber(std::vector<BYTE>& data, const std::string& text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    T number = 0;
    const auto [end, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != last || first == last)
        throw CommandError(ExitUsage, "not a number of " + std::to_string(sizeof(T) * 8) + " bits: " + text);
    AppendBytes(data, &number, 1);
}

void AppendHexadecimal(std::vector<BYTE>& data, std::string text)
{
    std::erase_if(text, [](unsigned char c) { return c == ' ' || c == ',' || c == ':'; });
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (text.size() % 2 != 0 || !std::all_of(text.begin(), text.end(), isDigit))
        throw CommandError(ExitUsage, "not hexadecimal bytes: " + text);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        BYTE byte = 0;
        std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
        data.push_back(byte);
    }
}

template <typename T>
T NumberOf(const RegistryValue& value)
{
    T number = 0;
    std::memcpy(&number, value.data.data(), sizeof number);
    return number;
}

// All whole characters. A byte left over, as some programs store it, is not shown.
WString CharactersOf(const RegistryValue& value)
{
    WString text(value.data.size() / sizeof(WCHAR), WCHAR());
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(WCHAR));
    return text;
}

WString StringOf(const RegistryValue& value)
{
    WString text = CharactersOf(value);
    while (!text.empty() && text.back() == 0)
        text.pop_back();
    return text;
}

std::vector<WString> StringsOf(const RegistryValue& value)
{
    std::vector<WString> list;
    const WString text = CharactersOf(value);
    for (std::size_t at = 0; at < text.size() && text[at] != 0; at += list.back().size() + 1)
        list.push_back(text.substr(at, text.find(WCHAR(0), at) - at));
    return list;
}

std::string HexadecimalOf(const RegistryValue& value)
{
    std::string text;
    for (BYTE byte : value.data)
        text += Format("%02x", byte);
    return text;
}

bool IsString(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

} // namespace

const std::vector<std::string>& TypeNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const NamedType& type : Types)
            list.emplace_back(type.name);
        return list;
    }();
    return names;
}

RegistryValue ParseValue(const std::string& typeName, const std::vector<std::string>& words)
{
    RegistryValue value;
    for (const NamedType& type : Types) {
        if (typeName == type.name)
            value.type = type.type;
    }
    if (value.type != REG_MULTI_SZ && value.type != REG_BINARY && words.size() != 1)
        throw CommandError(ExitUsage, "a value of type " + typeName + " takes one word");
    for (const std::string& word : words) {
        if (value.type == REG_DWORD) {
            AppendNumber<std::uint32_t>(value.data, word);
        } else if (value.type == REG_QWORD) {
            AppendNumber<std::uint64_t>(value.data, word);
        } else if (value.type == REG_BINARY) {
            AppendHexadecimal(value.data, word);
        } else {
            const WString text = FromUtf8(word);
            AppendBytes(value.data, text.c_str(), text.size() + 1);
        }
    }
    if (value.type == REG_MULTI_SZ)
        value.data.insert(value.data.end(), sizeof(WCHAR), 0);
    return value;
}

std::string TypeText(DWORD type)
{
    for (const NamedType& named : Types) {
        if (named.type == type)
            return named.name;
    }
    return "type " + std::to_string(type);
}

std::string DataText(const RegistryValue& value)
{
    if (value.type == REG_DWORD && value.data.size() == sizeof(std::uint32_t))
        return std::to_string(NumberOf<std::uint32_t>(value));
    if (value.type == REG_QWORD && value.data.size() == sizeof(std::uint64_t))
        return std::to_string(NumberOf<std::uint64_t>(value));
    if (IsString(value.type))
        return Printable(StringOf(value));
    if (value.type == REG_MULTI_SZ) {
        std::string text;
        for (const WString& line : StringsOf(value))
            text += (text.empty() ? "" : "\n") + Printable(line);
        return text;
    }
    return HexadecimalOf(value);
}

nlohmann::ordered_json ToJson(const RegistryValue& value)
{
    nlohmann::ordered_json json{{"type", TypeText(value.type)}, {"bytes", value.data.size()}};
    if (value.type == REG_DWORD && value.data.size() == sizeof(std::uint32_t)) {
        json["data"] = NumberOf<std::uint32_t>(value);
    } else if (value.type == REG_QWORD && value.data.size() == sizeof(std::uint64_t)) {
        json["data"] = NumberOf<std::uint64_t>(value);
    } else if (IsString(value.type)) {
        json["data"] = Utf8(StringOf(value));
    } else if (value.type == REG_MULTI_SZ) {
        json["data"] = nlohmann::ordered_json::array();
        for (const WString& line : StringsOf(value))
            json["data"].push_back(Utf8(line));
    } else {
        json["data"] = HexadecimalOf(value);
    }
    return json;
}

RegistryValue ReadValue(HKEY key, const std::string& name)
{
    RegistryValue value;
    const WString wide = FromUtf8(name);
    DWORD size = 256;
    LSTATUS status = ERROR_MORE_DATA;
    // The value may grow between two calls.
    while (status == static_cast<LSTATUS>(ERROR_MORE_DATA)) {
        value.data.resize(size);
        status = RegQueryValueExW(key, wide.c_str(), nullptr, &value.type, value.data.data(), &size);
    }
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        throw CommandError(ExitNo, "no value " + name, "vlctl registry list shows what a key holds");
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), name);
    value.data.resize(size);
    return value;
}

} // namespace vlt::ctl
