#include "suite/ArdScan/HostPath.h"

#include <cstdlib>
#include <unistd.h>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

// A byte that is not part of valid UTF-8 is the lone surrogate U+DC80 to U+DCFF, so that every name has
// a path and every path leads back to its name.
constexpr char16_t ByteBase = 0xDC00;

std::size_t SequenceLength(std::string_view text, char32_t& code)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xF0 && lead < 0xF5 ? 4
                                                             : 0;
    if (length == 0 || length > text.size())
        return 0;
    code = length == 1 ? lead : lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr char32_t Least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < Least[length] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
        return 0;
    return length;
}

WString Widen(std::string_view text)
{
    WString result;
    result.reserve(text.size());
    while (!text.empty()) {
        char32_t code = 0;
        const std::size_t length = SequenceLength(text, code);
        if (length == 0) {
            result += static_cast<char16_t>(ByteBase + static_cast<unsigned char>(text[0]));
            text.remove_prefix(1);
            continue;
        }
        if (code >= 0x10000) {
            result += static_cast<char16_t>(0xD7C0 + (code >> 10));
            result += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        } else {
            result += static_cast<char16_t>(code);
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string Narrow(WStringView text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t code = text[i];
        const bool high = code >= 0xD800 && code < 0xDC00;
        if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
            code = 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00u);
        else if (code >= ByteBase + 0x80 && code <= ByteBase + 0xFF) {
            result += static_cast<char>(code - ByteBase);
            continue;
        }
        if (code < 0x80) {
            result += static_cast<char>(code);
        } else if (code < 0x800) {
            result += static_cast<char>(0xC0 | code >> 6);
            result += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            if (code < 0x10000) {
                result += static_cast<char>(0xE0 | code >> 12);
            } else {
                result += static_cast<char>(0xF0 | code >> 18);
                result += static_cast<char>(0x80 | (code >> 12 & 0x3F));
            }
            result += static_cast<char>(0x80 | (code >> 6 & 0x3F));
            result += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return result;
}

// Names on drive C: keep the case they were made with and are found in any.
fs::path FindAnyCase(const fs::path& folder, const std::string& name)
{
    std::error_code error;
    if (fs::exists(fs::symlink_status(folder / name, error)))
        return folder / name;
    const WString wanted = FoldPath(Widen(name));
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (FoldPath(Widen(it->path().filename().native())) == wanted)
            return it->path();
    return folder / name;
}

const fs::path& DriveC()
{
    // The same rule as the platform layer's machine root.
    static const fs::path drive = [] {
        const char* given = std::getenv("VLT_ROOT");
        const char* state = std::getenv("XDG_STATE_HOME");
        const char* home = std::getenv("HOME");
        fs::path root;
        if (given && *given)
            root = given;
        else if (geteuid() == 0)
            root = "/var/lib/veltrano";
        else if (state && *state)
            root = fs::path(state) / "veltrano";
        else if (home && *home)
            root = fs::path(home) / ".local/state/veltrano";
        else
            root = "/tmp/veltrano-" + std::to_string(geteuid());
        std::error_code ignored;
        return fs::weakly_canonical(root / "drives/c", ignored);
    }();
    return drive;
}

} // namespace

HostPath ToHost(WStringView path)
{
    fs::path result;
    std::string text = Narrow(path);
    if (path.size() >= 2 && path[1] == ':') {
        const bool driveZ = path[0] == 'Z' || path[0] == 'z';
        result = driveZ ? fs::path("/") : DriveC();
        text.erase(0, 2);
    } else if (text.starts_with('/')) {
        return fs::path(text).lexically_normal();
    } else {
        std::error_code ignored;
        result = fs::current_path(ignored);
    }
    while (!text.empty()) {
        const auto end = text.find_first_of("\\/");
        const std::string name = text.substr(0, end);
        text.erase(0, end == std::string::npos ? end : end + 1);
        if (name == "..")
            result = result.parent_path();
        else if (!name.empty() && name != ".")
            result = FindAnyCase(result, name);
    }
    return result;
}

HostPath ToHostUtf8(std::string_view path)
{
    return ToHost(Widen(path));
}

WString ToWindows(const HostPath& path)
{
    const std::string& text = path.native();
    const std::string& drive = DriveC().native();
    const bool onC = text.starts_with(drive) && (text.size() == drive.size() || text[drive.size()] == '/');
    WString result = Widen(onC ? std::string_view(text).substr(drive.size()) : std::string_view(text));
    for (char16_t& unit : result)
        if (unit == u'/')
            unit = u'\\';
    if (result.empty())
        result = u"\\";
    return (onC ? u"C:" : u"Z:") + result;
}

std::string ToUtf8(const HostPath& path)
{
    return path.native();
}

} // namespace vlt::scan
