#include "platform/posix/file/ProfileText.h"

#include "platform/posix/core/Utf.h"

#include <algorithm>
#include <cstring>

namespace vlt::posix
{
namespace
{

constexpr std::string_view Blanks = " \t";
constexpr std::string_view Utf16Mark = "\xFF\xFE";
constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(Blanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

std::string FromUtf16Bytes(std::string_view bytes)
{
    std::u16string units(bytes.size() / 2, u'\0'); // an odd last byte is no character
    std::memcpy(units.data(), bytes.data(), units.size() * 2);
    return Utf8FromUtf16(units);
}

std::string OneLine(std::string_view value)
{
    std::string line(value);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return line;
}

} // namespace

ProfileText::ProfileText(std::string_view bytes)
{
    std::string converted;
    if (bytes.starts_with(Utf16Mark)) {
        m_utf16 = true;
        converted = FromUtf16Bytes(bytes.substr(Utf16Mark.size()));
        bytes = converted;
    } else if (bytes.starts_with(Utf8Mark)) {
        m_utf8Mark = true;
        bytes.remove_prefix(Utf8Mark.size());
    }
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        std::string_view line = bytes.substr(0, end);
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        m_lines.push_back(Parse(std::string(line)));
    }
}

ProfileText::Line ProfileText::Parse(std::string text)
{
    Line line;
    const std::string_view trimmed = Trim(text);
    if (trimmed.starts_with('[') && trimmed.find(']') != std::string_view::npos) {
        line.kind = Line::Kind::Section;
        line.name = trimmed.substr(1, trimmed.rfind(']') - 1);
    } else if (const std::size_t equals = trimmed.find('=');
               equals != std::string_view::npos && !trimmed.starts_with(';')) {
        line.kind = Line::Kind::Entry;
        line.name = Trim(trimmed.substr(0, equals));
    }
    line.text = std::move(text);
    return line;
}

bool ProfileText::SameName(std::string_view left, std::string_view right)
{
    return left == right || FoldCase(Utf16FromUtf8(left)) == FoldCase(Utf16FromUtf8(right));
}

std::size_t ProfileText::SectionBegin(std::string_view section) const
{
    section = Trim(section);
    for (std::size_t i = 0; i < m_lines.size(); ++i) {
        if (m_lines[i].kind == Line::Kind::Section && SameName(m_lines[i].name, section))
            return i + 1;
    }
    return npos;
}

std::size_t ProfileText::SectionEnd(std::size_t begin) const
{
    while (begin < m_lines.size() && m_lines[begin].kind != Line::Kind::Section)
        ++begin;
    return begin;
}

std::size_t ProfileText::FindKey(std::string_view section, std::string_view key) const
{
    const std::size_t begin = SectionBegin(section);
    if (begin == npos)
        return npos;
    key = Trim(key);
    const std::size_t end = SectionEnd(begin);
    for (std::size_t i = begin; i < end; ++i) {
        if (m_lines[i].kind == Line::Kind::Entry && SameName(m_lines[i].name, key))
            return i;
    }
    return npos;
}

std::vector<std::string> ProfileText::Sections() const
{
    std::vector<std::string> names;
    for (const Line& line : m_lines) {
        if (line.kind == Line::Kind::Section)
            names.push_back(line.name);
    }
    return names;
}

std::vector<std::string> ProfileText::Keys(std::string_view section) const
{
    std::vector<std::string> names;
    const std::size_t begin = SectionBegin(section);
    for (std::size_t i = begin; begin != npos && i < SectionEnd(begin); ++i) {
        if (m_lines[i].kind == Line::Kind::Entry)
            names.push_back(m_lines[i].name);
    }
    return names;
}

std::optional<std::string> ProfileText::Value(std::string_view section, std::string_view key) const
{
    const std::size_t at = FindKey(section, key);
    if (at == npos)
        return std::nullopt;
    const std::string_view text = m_lines[at].text;
    std::string_view value = Trim(text.substr(text.find('=') + 1));
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.front() == value.back())
        value = value.substr(1, value.size() - 2);
    return std::string(value);
}

bool ProfileText::Set(std::string_view section, std::string_view key, std::string_view value)
{
    const std::string clean = OneLine(value);
    const std::string name = OneLine(Trim(key));
    if (const std::size_t at = FindKey(section, key); at != npos) {
        Line line = Parse(m_lines[at].name + '=' + clean);
        if (line.text == m_lines[at].text)
            return false;
        m_lines[at] = std::move(line);
        return true;
    }
    std::size_t begin = SectionBegin(section);
    if (begin == npos) {
        m_lines.push_back(Parse('[' + OneLine(Trim(section)) + ']'));
        begin = m_lines.size();
    }
    std::size_t end = SectionEnd(begin);
    while (end > begin && Trim(m_lines[end - 1].text).empty()) // blank lines stay between sections
        --end;
    m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(end), Parse(name + '=' + clean));
    return true;
}

bool ProfileText::RemoveKey(std::string_view section, std::string_view key)
{
    const std::size_t at = FindKey(section, key);
    if (at == npos)
        return false;
    m_lines.erase(m_lines.begin() + static_cast<std::ptrdiff_t>(at));
    return true;
}

bool ProfileText::RemoveSection(std::string_view section)
{
    const std::size_t begin = SectionBegin(section);
    if (begin == npos)
        return false;
    m_lines.erase(m_lines.begin() + static_cast<std::ptrdiff_t>(begin - 1),
                  m_lines.begin() + static_cast<std::ptrdiff_t>(SectionEnd(begin)));
    return true;
}

std::string ProfileText::Bytes() const
{
    std::string text;
    for (const Line& line : m_lines)
        text += line.text + "\r\n";
    if (!m_utf16)
        return m_utf8Mark ? std::string(Utf8Mark) + text : text;
    const std::u16string units = Utf16FromUtf8(text);
    std::string bytes(Utf16Mark);
    bytes.append(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    return bytes;
}

} // namespace vlt::posix
