// The printf-style formatter behind the trace, the logs and the event texts.
//
// It takes the product's format strings as they stand on both hosts: %s is text of the format's own
// width, %S of the other width, %ls and %ws are UTF-16, %hs is 8-bit; %d %i %u %x %X %o %c %p with
// flags, width and precision, the sizes h, l, ll and I64; %%. Text of the other width is converted
// with the system code page. Arguments are typed: an integer keeps its own width whatever the size
// says; an argument of the wrong kind prints "(?)", a missing one "(missing)"; spare ones are ignored.
// A null text prints "(null)". Thread-safe, no locale, no allocation in the FormatTo forms but for
// text conversion.
#pragma once

#include "platform/win32.h"

#include <array>
#include <cstddef>
#include <span>
#include <type_traits>

namespace vlt
{

struct FormatArg {
    enum class Kind { Signed, Unsigned, Double, Narrow, Wide, Pointer };

    Kind kind = Kind::Signed;
    unsigned bytes = 0; // width of an integer, 1 to 8
    union {
        long long signedValue;
        unsigned long long unsignedValue;
        double doubleValue;
        const char* narrow;
        const WCHAR* wide;
        const void* pointer;
    };

    FormatArg() noexcept : signedValue(0) {}

    template <typename T>
    requires(std::is_integral_v<T> || std::is_enum_v<T>) FormatArg(T value)
    noexcept : bytes(sizeof(T)) // NOLINT: implicit on purpose
    {
        if constexpr (std::is_enum_v<T>) {
            *this = FormatArg(static_cast<std::underlying_type_t<T>>(value));
        } else if constexpr (std::is_signed_v<T>) {
            kind = Kind::Signed;
            signedValue = static_cast<long long>(value);
        } else {
            kind = Kind::Unsigned;
            unsignedValue = static_cast<unsigned long long>(value);
        }
    }
    FormatArg(double value) noexcept : kind(Kind::Double), doubleValue(value) {}
    FormatArg(const char* text) noexcept : kind(Kind::Narrow), narrow(text) {}
    FormatArg(const WCHAR* text) noexcept : kind(Kind::Wide), wide(text) {}
    FormatArg(const std::string& text) noexcept : FormatArg(text.c_str()) {}
    FormatArg(const WString& text) noexcept : FormatArg(text.c_str()) {}
    template <typename T>
    requires(!std::is_same_v<std::remove_cv_t<T>, char> && !std::is_same_v<std::remove_cv_t<T>, WCHAR>)
        FormatArg(T* value)
    noexcept : kind(Kind::Pointer), pointer(reinterpret_cast<const void*>(value)) {}
};

using FormatArgs = std::span<const FormatArg>;

// Writes at most capacity - 1 characters and always terminates (a capacity of 0 writes nothing).
// Returns the number of characters written without the terminator; longer output is cut.
std::size_t FormatToV(char* buffer, std::size_t capacity, const char* format, FormatArgs args);
std::size_t FormatToV(WCHAR* buffer, std::size_t capacity, const WCHAR* format, FormatArgs args);

// The whole text, never cut.
std::string FormatV(const char* format, FormatArgs args);
WString FormatV(const WCHAR* format, FormatArgs args);

template <typename Char, typename... Args>
std::size_t FormatTo(Char* buffer, std::size_t capacity, const Char* format, const Args&... args)
{
    const std::array<FormatArg, sizeof...(Args)> list{FormatArg(args)...};
    return FormatToV(buffer, capacity, format, FormatArgs(list.data(), list.size()));
}

template <typename Char, typename... Args>
std::basic_string<Char> Format(const Char* format, const Args&... args)
{
    const std::array<FormatArg, sizeof...(Args)> list{FormatArg(args)...};
    return FormatV(format, FormatArgs(list.data(), list.size()));
}

} // namespace vlt
