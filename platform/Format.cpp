#include "platform/Format.h"

#include "platform/Text.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

namespace vlt
{
namespace
{

// A length that no trace line needs and no width of a hostile format may pass.
constexpr unsigned MaxField = 4096;
constexpr unsigned NoPrecision = std::numeric_limits<unsigned>::max();

// Where the output goes: a bounded buffer that drops what does not fit, or a string.
template <typename Char>
class Sink
{
public:
    Sink(Char* buffer, std::size_t room) noexcept : m_buffer(buffer), m_room(room) {}
    explicit Sink(std::basic_string<Char>& text) noexcept : m_text(&text) {}

    void Put(Char c)
    {
        if (m_text)
            m_text->push_back(c);
        else if (m_length < m_room)
            m_buffer[m_length++] = c;
    }
    void Put(std::basic_string_view<Char> text)
    {
        for (const Char c : text)
            Put(c);
    }
    void PutAscii(std::string_view text)
    {
        for (const char c : text)
            Put(static_cast<Char>(c));
    }
    void Fill(char c, std::size_t count)
    {
        for (; count > 0; --count)
            Put(static_cast<Char>(c));
    }
    std::size_t Length() const noexcept { return m_length; }

private:
    Char* m_buffer = nullptr;
    std::size_t m_room = 0;
    std::size_t m_length = 0;
    std::basic_string<Char>* m_text = nullptr;
};

enum class Size { None, Half, Long, Wide }; // h; l, ll, I, I64; w

struct Directive {
    bool left = false;
    bool plus = false;
    bool blank = false;
    bool zero = false;
    bool alternate = false;
    unsigned width = 0;
    unsigned precision = NoPrecision;
    Size size = Size::None;
    char conversion = 0;
};

// The arguments in turn.
class ArgCursor
{
public:
    explicit ArgCursor(FormatArgs args) noexcept : m_args(args) {}
    const FormatArg* Next() noexcept { return m_next < m_args.size() ? &m_args[m_next++] : nullptr; }

private:
    FormatArgs m_args;
    std::size_t m_next = 0;
};

bool IsInteger(const FormatArg& arg) noexcept
{
    return arg.kind == FormatArg::Kind::Signed || arg.kind == FormatArg::Kind::Unsigned;
}

// Small integers are widened as in a C call, so a short of -1 has eight hexadecimal digits.
std::uint64_t UnsignedValue(const FormatArg& arg) noexcept
{
    const std::uint64_t value =
        arg.kind == FormatArg::Kind::Signed ? static_cast<std::uint64_t>(arg.signedValue) : arg.unsignedValue;
    return arg.bytes <= 4 ? value & 0xFFFFFFFFu : value;
}

std::int64_t SignedValue(const FormatArg& arg) noexcept
{
    const std::uint64_t value = UnsignedValue(arg);
    if (arg.bytes <= 4)
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
    return static_cast<std::int64_t>(value);
}

std::string_view Digits(std::uint64_t value, unsigned base, bool upper, std::array<char, 24>& store) noexcept
{
    const char* const letters = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::size_t at = store.size();
    do {
        store[--at] = letters[value % base];
        value /= base;
    } while (value != 0);
    return {store.data() + at, store.size() - at};
}

template <typename Char>
class Formatter
{
public:
    Formatter(Sink<Char>& out, const Char* format, FormatArgs args) noexcept : m_out(out), m_at(format), m_args(args) {}

    void Run()
    {
        while (*m_at != 0) {
            if (*m_at != '%') {
                m_out.Put(*m_at++);
                continue;
            }
            const Char* const start = m_at++;
            Directive directive;
            ParseFlags(directive);
            ParseWidth(directive);
            ParseSize(directive);
            if (*m_at == 0 || *m_at >= 0x80) { // a lone percent sign at the end
                PutVerbatim(start);
                continue;
            }
            directive.conversion = static_cast<char>(*m_at++);
            Convert(directive, start);
        }
    }

private:
    static constexpr bool IsWide = sizeof(Char) == 2;

    void ParseFlags(Directive& d)
    {
        for (;; ++m_at) {
            switch (*m_at) {
            case '-':
                d.left = true;
                break;
            case '+':
                d.plus = true;
                break;
            case ' ':
                d.blank = true;
                break;
            case '0':
                d.zero = true;
                break;
            case '#':
                d.alternate = true;
                break;
            default:
                return;
            }
        }
    }

    unsigned ParseNumber()
    {
        unsigned value = 0;
        for (; *m_at >= '0' && *m_at <= '9'; ++m_at)
            value = value < MaxField ? value * 10 + static_cast<unsigned>(*m_at - '0') : MaxField;
        return value < MaxField ? value : MaxField;
    }

    // The number after a star; 0 when the argument is not one.
    std::int64_t StarArgument()
    {
        ++m_at;
        const FormatArg* const arg = m_args.Next();
        return arg && IsInteger(*arg) ? SignedValue(*arg) : 0;
    }

    static unsigned Limited(std::int64_t value) { return value > MaxField ? MaxField : static_cast<unsigned>(value); }

    void ParseWidth(Directive& d)
    {
        if (*m_at == '*') {
            const std::int64_t width = StarArgument();
            d.left = d.left || width < 0;
            d.width = Limited(width < 0 ? -(width + 1) + 1 : width);
        } else {
            d.width = ParseNumber();
        }
        if (*m_at != '.')
            return;
        ++m_at;
        if (*m_at == '*') {
            const std::int64_t precision = StarArgument();
            d.precision = precision < 0 ? NoPrecision : Limited(precision);
        } else {
            d.precision = ParseNumber();
        }
    }

    void ParseSize(Directive& d)
    {
        for (;; ++m_at) {
            switch (*m_at) {
            case 'h':
                d.size = Size::Half;
                break;
            case 'l':
                d.size = Size::Long;
                break;
            case 'w':
                d.size = Size::Wide;
                break;
            case 'I':
                if ((m_at[1] == '6' && m_at[2] == '4') || (m_at[1] == '3' && m_at[2] == '2'))
                    m_at += 2;
                break; // the argument knows its width
            default:
                return;
            }
        }
    }

    void PutVerbatim(const Char* start)
    {
        m_out.Put(std::basic_string_view<Char>(start, static_cast<std::size_t>(m_at - start)));
    }

    void Convert(const Directive& d, const Char* start)
    {
        if (d.conversion == '%') {
            m_out.Put(static_cast<Char>('%'));
            return;
        }
        constexpr std::string_view known = "diuxXoOcCsSpfFeEgG";
        if (known.find(d.conversion) == std::string_view::npos) {
            PutVerbatim(start);
            return;
        }
        const FormatArg* const arg = m_args.Next();
        if (!arg) {
            m_out.PutAscii("(missing)");
            return;
        }
        bool done = false;
        switch (d.conversion) {
        case 's':
        case 'S':
            done = PutText(d, *arg);
            break;
        case 'c':
        case 'C':
            done = PutCharacter(d, *arg);
            break;
        case 'p':
            done = PutPointer(d, *arg);
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            done = PutInteger(d, *arg);
            break;
        default:
            done = PutDouble(d, *arg);
            break;
        }
        if (!done)
            m_out.PutAscii("(?)");
    }

    template <typename Text>
    void PutPadded(const Directive& d, const Text& text)
    {
        const std::size_t padding = text.size() < d.width ? d.width - text.size() : 0;
        if (!d.left)
            m_out.Fill(' ', padding);
        for (const auto c : text)
            m_out.Put(static_cast<Char>(c));
        if (d.left)
            m_out.Fill(' ', padding);
    }

    // The text of at most the precision's length, which then need not be terminated.
    template <typename TextChar>
    static std::basic_string_view<TextChar> Bounded(const TextChar* text, unsigned limit)
    {
        std::size_t length = 0;
        while (length < limit && text[length] != 0)
            ++length;
        return {text, length};
    }

    bool PutText(const Directive& d, const FormatArg& arg)
    {
        bool wide = (d.conversion == 'S') != IsWide;
        if (d.size == Size::Half)
            wide = false;
        else if (d.size == Size::Long || d.size == Size::Wide)
            wide = true;
        if (arg.kind != (wide ? FormatArg::Kind::Wide : FormatArg::Kind::Narrow))
            return false;
        if (wide ? arg.wide == nullptr : arg.narrow == nullptr) {
            PutPadded(d, std::string_view("(null)"));
        } else if constexpr (IsWide) {
            if (wide)
                PutPadded(d, Bounded(arg.wide, d.precision));
            else
                PutPadded(d, WStringView(ToWide(arg.narrow)).substr(0, d.precision));
        } else {
            if (wide)
                PutPadded(d, std::string_view(ToNarrow(arg.wide)).substr(0, d.precision));
            else
                PutPadded(d, Bounded(arg.narrow, d.precision));
        }
        return true;
    }

    bool PutCharacter(const Directive& d, const FormatArg& arg)
    {
        if (!IsInteger(arg))
            return false;
        if constexpr (IsWide) {
            const auto mask = arg.bytes == 1 ? 0xFFu : 0xFFFFu;
            const auto c = static_cast<WCHAR>(UnsignedValue(arg) & mask);
            PutPadded(d, WStringView(&c, 1));
        } else if (arg.bytes == 2) {
            const auto c = static_cast<WCHAR>(UnsignedValue(arg) & 0xFFFFu);
            PutPadded(d, ToNarrow(WStringView(&c, 1)));
        } else {
            const auto c = static_cast<char>(static_cast<unsigned char>(UnsignedValue(arg) & 0xFFu));
            PutPadded(d, std::string_view(&c, 1));
        }
        return true;
    }

    bool PutPointer(const Directive& d, const FormatArg& arg)
    {
        const void* value = nullptr;
        switch (arg.kind) {
        case FormatArg::Kind::Pointer:
            value = arg.pointer;
            break;
        case FormatArg::Kind::Narrow:
            value = arg.narrow;
            break;
        case FormatArg::Kind::Wide:
            value = arg.wide;
            break;
        default:
            return false;
        }
        Directive number = d;
        number.precision = 2 * sizeof(value);
        std::array<char, 24> store;
        PutNumber(number, {}, Digits(reinterpret_cast<std::uintptr_t>(value), 16, true, store));
        return true;
    }

    bool PutInteger(const Directive& d, const FormatArg& arg)
    {
        if (!IsInteger(arg))
            return false;
        std::array<char, 24> store;
        std::string_view digits;
        std::string_view prefix;
        if (d.conversion == 'd' || d.conversion == 'i') {
            const std::int64_t value = SignedValue(arg);
            const auto magnitude = static_cast<std::uint64_t>(value);
            digits = Digits(value < 0 ? 0 - magnitude : magnitude, 10, false, store);
            prefix = value < 0 ? "-" : d.plus ? "+" : d.blank ? " " : "";
        } else {
            const std::uint64_t value = UnsignedValue(arg);
            const bool hex = d.conversion == 'x' || d.conversion == 'X';
            digits = Digits(value, hex ? 16 : d.conversion == 'o' ? 8 : 10, d.conversion == 'X', store);
            if (d.alternate && value != 0)
                prefix = d.conversion == 'x' ? "0x" : d.conversion == 'X' ? "0X" : d.conversion == 'o' ? "0" : "";
        }
        if (d.precision == 0 && digits == "0")
            digits = {};
        PutNumber(d, prefix, digits);
        return true;
    }

    void PutNumber(const Directive& d, std::string_view prefix, std::string_view digits)
    {
        std::size_t zeros = d.precision != NoPrecision && d.precision > digits.size() ? d.precision - digits.size() : 0;
        const std::size_t used = prefix.size() + zeros + digits.size();
        std::size_t padding = d.width > used ? d.width - used : 0;
        if (d.zero && !d.left && d.precision == NoPrecision)
            zeros += std::exchange(padding, 0);
        if (!d.left)
            m_out.Fill(' ', padding);
        m_out.PutAscii(prefix);
        m_out.Fill('0', zeros);
        m_out.PutAscii(digits);
        if (d.left)
            m_out.Fill(' ', padding);
    }

    bool PutDouble(const Directive& d, const FormatArg& arg)
    {
        if (arg.kind != FormatArg::Kind::Double)
            return false;
        const char kind = static_cast<char>(d.conversion | 0x20);
        const auto style = kind == 'f'   ? std::chars_format::fixed
                           : kind == 'e' ? std::chars_format::scientific
                                         : std::chars_format::general;
        // The largest double has 309 digits before the point.
        std::array<char, 512> store;
        const int precision = d.precision == NoPrecision ? 6 : static_cast<int>(d.precision < 100 ? d.precision : 100);
        const auto end = std::to_chars(store.data(), store.data() + store.size(), arg.doubleValue, style, precision);
        std::string_view digits(store.data(), static_cast<std::size_t>(end.ptr - store.data()));
        std::string_view prefix = d.plus ? "+" : d.blank ? " " : "";
        if (digits.starts_with('-')) {
            digits.remove_prefix(1);
            prefix = "-";
        }
        Directive number = d;
        number.precision = NoPrecision;
        PutNumber(number, prefix, digits);
        return true;
    }

    Sink<Char>& m_out;
    const Char* m_at;
    ArgCursor m_args;
};

template <typename Char>
std::size_t FormatInto(Char* buffer, std::size_t capacity, const Char* format, FormatArgs args)
{
    if (capacity == 0)
        return 0;
    Sink<Char> out(buffer, capacity - 1);
    Formatter<Char>(out, format, args).Run();
    buffer[out.Length()] = 0;
    return out.Length();
}

template <typename Char>
std::basic_string<Char> FormatWhole(const Char* format, FormatArgs args)
{
    std::basic_string<Char> text;
    Sink<Char> out(text);
    Formatter<Char>(out, format, args).Run();
    return text;
}

} // namespace

std::size_t FormatToV(char* buffer, std::size_t capacity, const char* format, FormatArgs args)
{
    return FormatInto(buffer, capacity, format, args);
}

std::size_t FormatToV(WCHAR* buffer, std::size_t capacity, const WCHAR* format, FormatArgs args)
{
    return FormatInto(buffer, capacity, format, args);
}

std::string FormatV(const char* format, FormatArgs args)
{
    return FormatWhole(format, args);
}
WString FormatV(const WCHAR* format, FormatArgs args)
{
    return FormatWhole(format, args);
}

} // namespace vlt
