// The text of a private profile file: sections in brackets, entries "key=value", anything else kept as
// it is. Bytes are in the 8-bit code page; a file that begins with the UTF-16 mark is converted when it
// is read and when it is written. Names are compared ignoring case. Any bytes are a valid file.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vlt::posix
{

class ProfileText
{
public:
    explicit ProfileText(std::string_view bytes);

    std::vector<std::string> Sections() const;
    std::vector<std::string> Keys(std::string_view section) const;
    // Without the blanks around it and without one pair of quotes.
    std::optional<std::string> Value(std::string_view section, std::string_view key) const;

    // Each returns false when it changed nothing. A line break in a value becomes a blank: a value is
    // one line, whoever chose its text.
    bool Set(std::string_view section, std::string_view key, std::string_view value);
    bool RemoveKey(std::string_view section, std::string_view key);
    bool RemoveSection(std::string_view section);

    std::string Bytes() const;

private:
    struct Line {
        enum class Kind { Section, Entry, Other };
        Kind kind = Kind::Other;
        std::string text; // without its line break
        std::string name; // of the section or of the key
    };

    static Line Parse(std::string text);
    static bool SameName(std::string_view left, std::string_view right);

    // Index behind the section's heading, or npos; and where its lines end.
    std::size_t SectionBegin(std::string_view section) const;
    std::size_t SectionEnd(std::size_t begin) const;
    std::size_t FindKey(std::string_view section, std::string_view key) const; // npos when there is none

    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    bool m_utf16 = false;
    bool m_utf8Mark = false;
    std::vector<Line> m_lines;
};

} // namespace vlt::posix
