#include "platform/posix/core/Utf.h"
#include "platform/posix/win32/system.h"

#include <algorithm>
#include <limits>
#include <string>

using namespace vlt::posix;

namespace
{

template <typename Char>
int LengthOf(const Char* text)
{
    constexpr auto most = static_cast<std::size_t>(std::numeric_limits<int>::max());
    return text ? static_cast<int>(std::min(std::char_traits<Char>::length(text), most)) : 0;
}

template <typename Char>
Char* CopyBounded(Char* target, const Char* source, int size)
{
    if (!target || !source)
        return nullptr;
    if (size <= 0)
        return target;
    int length = 0;
    for (; length < size - 1 && source[length] != 0; ++length)
        target[length] = source[length];
    target[length] = 0;
    return target;
}

// A null text sorts before every other.
template <typename Text>
int Compare(const Text* left, const Text* right, bool ignoreCase)
{
    if (!left || !right)
        return (left ? 1 : 0) - (right ? 1 : 0);
    for (;; ++left, ++right) {
        const char16_t l = ignoreCase ? FoldCase(*left) : *left;
        const char16_t r = ignoreCase ? FoldCase(*right) : *right;
        if (l != r)
            return l < r ? -1 : 1;
        if (l == 0)
            return 0;
    }
}

} // namespace

DWORD CharLowerBuffW(LPWSTR text, DWORD length)
{
    if (!text)
        return 0;
    std::transform(text, text + length, text, [](WCHAR c) { return FoldCase(c); });
    return length;
}

int lstrlenW(LPCWSTR text)
{
    return LengthOf(text);
}
int lstrlenA(LPCSTR text)
{
    return LengthOf(text);
}
LPWSTR lstrcpynW(LPWSTR target, LPCWSTR source, int size)
{
    return CopyBounded(target, source, size);
}
LPSTR lstrcpynA(LPSTR target, LPCSTR source, int size)
{
    return CopyBounded(target, source, size);
}
int lstrcmpW(LPCWSTR left, LPCWSTR right)
{
    return Compare(left, right, false);
}
int lstrcmpiW(LPCWSTR left, LPCWSTR right)
{
    return Compare(left, right, true);
}

int lstrcmpiA(LPCSTR left, LPCSTR right)
{
    if (!left || !right)
        return (left ? 1 : 0) - (right ? 1 : 0);
    return Compare(Utf16FromUtf8(left).c_str(), Utf16FromUtf8(right).c_str(), true);
}
