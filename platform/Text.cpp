#include "platform/Text.h"

#include <limits>
#include <stdexcept>

namespace vlt
{
namespace
{

int LengthOf(std::size_t size)
{
    if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        throw std::length_error("text too long to convert");
    return static_cast<int>(size);
}

} // namespace

WString ToWide(std::string_view text, UINT codePage)
{
    const int length = LengthOf(text.size());
    WString result;
    if (length == 0)
        return result;
    const int size = MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    result.resize(static_cast<std::size_t>(size > 0 ? size : 0));
    if (size > 0)
        MultiByteToWideChar(codePage, 0, text.data(), length, result.data(), size);
    return result;
}

std::string ToNarrow(WStringView text, UINT codePage)
{
    const int length = LengthOf(text.size());
    std::string result;
    if (length == 0)
        return result;
    const int size = WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    result.resize(static_cast<std::size_t>(size > 0 ? size : 0));
    if (size > 0)
        WideCharToMultiByte(codePage, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

} // namespace vlt
