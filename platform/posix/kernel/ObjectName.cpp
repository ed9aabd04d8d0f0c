#include "platform/posix/kernel/ObjectName.h"

#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/base.h"

#include <cstdlib>

namespace vlt::posix
{
namespace
{

std::uint64_t Hash(std::string_view text, std::uint64_t seed) noexcept
{
    std::uint64_t hash = 0xCBF29CE484222325u ^ seed;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

// The session whose plain names this process sees; 0 shares its names with "Global\".
const std::string& Session()
{
    static const std::string& session = *new std::string([] {
        const char* given = std::getenv("VLT_SESSION");
        const unsigned long number = given ? std::strtoul(given, nullptr, 10) : 0;
        return std::to_string(number);
    }());
    return session;
}

void AppendHex(std::string& text, std::uint64_t value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        text += "0123456789ABCDEF"[(value >> shift) & 15];
}

} // namespace

bool ObjectFileName(std::u16string_view& name, std::string& file)
{
    if (name.size() > ObjectNameLimit) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    constexpr std::u16string_view global = u"Global\\";
    constexpr std::u16string_view local = u"Local\\";
    const bool everywhere = name.starts_with(global);
    if (everywhere)
        name.remove_prefix(global.size());
    else if (name.starts_with(local))
        name.remove_prefix(local.size());
    if (name.empty() || name.find(u'\\') != name.npos) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    const std::string text = Utf8FromUtf16(name);
    file = everywhere ? std::string(1, '0') : Session();
    file += '-';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
            byte == '_') {
            file += c;
        } else {
            file += '%';
            AppendHex(file, byte, 2);
        }
    }
    if (file.size() > 200) {
        file.resize(120);
        file += '~';
        AppendHex(file, Hash(text, 0), 16);
        AppendHex(file, Hash(text, 0x9E3779B97F4A7C15u), 16);
    }
    return true;
}

} // namespace vlt::posix
