#include "tools/ptfc/SignatureText.h"

#include "engine/ArdScanAbi.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace vlt::scan
{
namespace
{

bool ParseNumber(std::string_view text, auto& value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Digits of one word, two to a byte, "??" being a wildcard.
bool ParseBytes(std::string_view word, std::vector<std::uint8_t>& value, std::vector<std::uint8_t>& mask)
{
    if (word.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < word.size(); i += 2) {
        if (word[i] == '?' && word[i + 1] == '?') {
            value.push_back(0);
            mask.push_back(0);
            continue;
        }
        const int high = HexDigit(word[i]), low = HexDigit(word[i + 1]);
        if (high < 0 || low < 0)
            return false;
        value.push_back(static_cast<std::uint8_t>(high << 4 | low));
        mask.push_back(0xFF);
    }
    return true;
}

class Parser
{
public:
    PatternFile file;

    // Empty, or what is wrong.
    std::string Line(const std::string& line)
    {
        std::istringstream words(line);
        std::string word;
        if (words >> word && word == "text")
            return Text(line.substr(line.find(word) + word.size())); // which may have a # in it
        words = std::istringstream(line.substr(0, line.find('#')));
        if (!(words >> word))
            return {};
        if (word == "kind")
            return words >> word && Kind(word) ? "" : "unknown kind, or one that comes after signatures";
        if (word == "version")
            return words >> word && ParseNumber(word, file.version) ? "" : "version is not a number";
        if (word == "hex")
            return Bytes(words);
        if (word == "sha256")
            return Hash(words);
        return "unknown word \"" + word + "\"";
    }

private:
    bool Kind(const std::string& word)
    {
        constexpr std::string_view Names[] = {"virus", "spyware", "packer", "white", "black"};
        if (!file.patterns.empty() || !file.hashes.empty())
            return false;
        for (std::uint32_t i = 0; i < std::size(Names); ++i) {
            if (word == Names[i]) {
                file.kind = static_cast<PatternKind>(i + 1);
                return true;
            }
        }
        return false;
    }

    static bool Option(Signature& signature, const std::string& word)
    {
        if (word == "clean")
            signature.flags |= SignatureCleanable;
        else if (word == "clean=zero")
            signature.flags |= SignatureCleanable | SignatureBlanked;
        else if (word == "crash")
            signature.flags |= SignatureCrash;
        else if (word == "adware")
            signature.spywareKind = AS_SPYWARE_ADWARE;
        else if (word == "dialer")
            signature.spywareKind = AS_SPYWARE_DIALER;
        else if (word == "tracker")
            signature.spywareKind = AS_SPYWARE_TRACKER;
        else
            return false;
        return true;
    }

    std::string Bytes(std::istringstream& words)
    {
        BytePattern pattern;
        words >> pattern.name;
        for (std::string word; words >> word;) {
            const bool option = pattern.value.empty() && Option(pattern, word);
            if (!option && !ParseBytes(word, pattern.value, pattern.mask))
                return "\"" + word + "\" is not hexadecimal";
        }
        return Add(std::move(pattern));
    }

    std::string Text(const std::string& line)
    {
        const std::size_t begin = line.find('"'), end = line.rfind('"');
        if (begin == std::string::npos || begin == end)
            return "a text in quotes is needed";
        BytePattern pattern;
        std::istringstream words(line.substr(0, begin));
        words >> pattern.name;
        for (std::string word; words >> word;)
            if (!Option(pattern, word))
                return "unknown word \"" + word + "\"";
        pattern.value.assign(line.begin() + static_cast<std::ptrdiff_t>(begin) + 1,
                             line.begin() + static_cast<std::ptrdiff_t>(end));
        pattern.mask.assign(pattern.value.size(), 0xFF);
        return Add(std::move(pattern));
    }

    std::string Add(BytePattern&& pattern)
    {
        if (!IsValid(pattern))
            return "the name or the pattern is too short, too long or has too few literals";
        if (!FitsKind(pattern))
            return WrongKind;
        file.patterns.push_back(std::move(pattern));
        return {};
    }

    static constexpr char WrongKind[] = "adware, dialer or tracker is needed in a spyware file, and only there";
    bool FitsKind(const Signature& signature) const
    {
        return (signature.spywareKind != 0) == (file.kind == PatternKind::Spyware);
    }

    std::string Hash(std::istringstream& words)
    {
        HashPattern pattern;
        words >> pattern.name;
        std::vector<std::uint8_t> value, mask;
        for (std::string word; words >> word;) {
            if (Option(pattern, word))
                continue;
            if (word.starts_with("size=")) {
                if (!ParseNumber(std::string_view(word).substr(5), pattern.size))
                    return "size is not a number";
            } else if (!ParseBytes(word, value, mask)) {
                return "\"" + word + "\" is not hexadecimal";
            }
        }
        if (value.size() != pattern.hash.size() || !IsValid(pattern))
            return "a name and 64 digits are needed";
        if (!FitsKind(pattern))
            return WrongKind;
        std::copy(value.begin(), value.end(), pattern.hash.begin());
        file.hashes.push_back(std::move(pattern));
        return {};
    }
};

} // namespace

std::optional<PatternFile> ParseSignatures(std::string_view text, std::string& error)
{
    Parser parser;
    std::istringstream lines{std::string(text)};
    std::string line, joined;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line.back() == '\\') {
            joined += line.substr(0, line.size() - 1) + ' ';
            continue;
        }
        const std::string wrong = parser.Line(joined + line);
        joined.clear();
        if (!wrong.empty()) {
            error = "line " + std::to_string(number) + ": " + wrong;
            return std::nullopt;
        }
    }
    return std::move(parser.file);
}

} // namespace vlt::scan
