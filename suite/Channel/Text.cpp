#include "suite/Channel/Text.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"

namespace vlt::suite
{
namespace
{

bool IsUnsafe(WCHAR unit)
{
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || (unit >= 0x200B && unit <= 0x200F) ||
           (unit >= 0x2028 && unit <= 0x202E) || (unit >= 0x2060 && unit <= 0x206F) || unit == 0xFEFF;
}

} // namespace

WString FromUtf8(const std::string& text)
{
    return ToWide(text, CP_UTF8);
}

std::string Utf8(WStringView text)
{
    return ToNarrow(text, CP_UTF8);
}

std::string Printable(WStringView text)
{
    std::string result;
    std::size_t from = 0;
    const auto flush = [&](std::size_t to) {
        if (to > from)
            result += Utf8(text.substr(from, to - from));
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;
        } else if (IsUnsafe(unit) || (unit >= 0xD800 && unit <= 0xDFFF)) {
            flush(i);
            result += Format("\\u%04x", static_cast<unsigned>(unit));
            from = i + 1;
        }
    }
    flush(text.size());
    return result;
}

std::string SystemText(DWORD systemError)
{
    LPWSTR text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        systemError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    if (length == 0)
        return "error";
    const LocalMem owner(text);
    WStringView view(text, length);
    while (!view.empty() && (view.back() == '\n' || view.back() == '\r' || view.back() == '.'))
        view.remove_suffix(1);
    return Printable(view);
}

SystemFailure::SystemFailure(DWORD code, const std::string& what)
    : std::runtime_error(Format("%s: %s (%u)", what, SystemText(code), code)), m_code(code)
{
}

void FailWith(DWORD systemError, const std::string& what)
{
    throw SystemFailure(systemError, what);
}

} // namespace vlt::suite
