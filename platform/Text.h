// Text between the system code page and UTF-16, over MultiByteToWideChar and WideCharToMultiByte.
#pragma once

#include "platform/win32.h"

namespace vlt
{

WString ToWide(std::string_view text, UINT codePage = CP_ACP);
std::string ToNarrow(WStringView text, UINT codePage = CP_ACP);

// Copies text into a fixed field of N characters: at most N - 1 of them, the rest of the field zero.
template <typename Char, std::size_t N>
void CopyToField(Char (&field)[N], std::basic_string_view<Char> text)
{
    const std::size_t length = text.size() < N ? text.size() : N - 1;
    text.copy(field, length);
    for (std::size_t i = length; i < N; ++i)
        field[i] = Char();
}

// The text of a fixed field: up to its terminator, or the whole field when it has none.
template <typename Char, std::size_t N>
constexpr std::basic_string_view<Char> FieldText(const Char (&field)[N])
{
    const std::basic_string_view<Char> whole(field, N);
    return whole.substr(0, whole.find(Char()));
}

} // namespace vlt
