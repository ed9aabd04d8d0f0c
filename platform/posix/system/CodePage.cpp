#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/system.h"

#include <cstring>
#include <limits>

using namespace vlt::posix;

namespace
{

// Whether the arguments are of the subset; the last error says why not. A length of -1 is replaced
// by that of the text with its terminator.
template <typename Char>
bool CheckArguments(UINT codePage, DWORD flags, const Char* text, int& length, const void* buffer, int size)
{
    DWORD code = 0;
    if ((codePage != CP_ACP && codePage != CP_UTF8) || flags != 0) {
        code = ERROR_NOT_SUPPORTED;
    } else if (!text || length == 0 || length < -1 || size < 0 || (size > 0 && !buffer) || buffer == text) {
        code = ERROR_INVALID_PARAMETER;
    } else if (length == -1) {
        const std::size_t measured = std::char_traits<Char>::length(text) + 1;
        if (measured > static_cast<std::size_t>(std::numeric_limits<int>::max()))
            code = ERROR_INVALID_PARAMETER;
        else
            length = static_cast<int>(measured);
    }
    if (code != 0)
        SetLastError(code);
    return code == 0;
}

template <typename Char>
int CopyResult(const std::basic_string<Char>& text, Char* buffer, int size)
{
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const int length = static_cast<int>(text.size());
    if (size == 0)
        return length;
    if (length > size) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::memcpy(buffer, text.data(), text.size() * sizeof(Char));
    return length;
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int textLength, LPWSTR buffer, int size)
{
    if (!CheckArguments(codePage, flags, text, textLength, buffer, size))
        return 0;
    return CopyResult(Utf16FromUtf8({text, static_cast<std::size_t>(textLength)}), buffer, size);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int textLength, LPSTR buffer, int size,
                        LPCSTR defaultChar, LPBOOL usedDefault)
{
    if (!CheckArguments(codePage, flags, text, textLength, buffer, size))
        return 0;
    if (defaultChar || usedDefault) { // every unit has a form of its own
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    return CopyResult(Utf8FromUtf16({text, static_cast<std::size_t>(textLength)}), buffer, size);
}
