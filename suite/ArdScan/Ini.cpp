#include "suite/ArdScan/Ini.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>

namespace vlt::scan
{
namespace
{

std::string_view Trim(std::string_view text)
{
    constexpr std::string_view Blank = " \t\r\n\f\v";
    const auto begin = text.find_first_not_of(Blank);
    if (begin == std::string_view::npos)
        return {};
    text = text.substr(begin, text.find_last_not_of(Blank) - begin + 1);
    return text;
}

std::string Fold(std::string_view text)
{
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return folded;
}

std::optional<unsigned> Number(std::string_view text, unsigned least, unsigned most)
{
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        return std::nullopt;
    return value;
}

constexpr unsigned MostFolders = 1000;

struct Parser {
    EngineSettings settings;
    std::map<unsigned, std::string> folders;

    void Guard(const std::string& key, std::string_view value)
    {
        if (key == "wholefilesystem") {
            if (const auto whole = Number(value, 0, 1))
                settings.mounts = *whole ? MountPolicy::WholeFileSystem : MountPolicy::Never;
        } else if (key.starts_with("folder") && !value.empty()) {
            if (const auto index = Number(std::string_view(key).substr(6), 0, MostFolders - 1))
                folders.try_emplace(*index, value);
        }
    }

    void Engine(const std::string& key, std::string_view value)
    {
        if (key == "workers")
            settings.workers = Number(value, 1, 64).value_or(settings.workers);
        else if (key == "answertimeout")
            settings.answerTimeout = Number(value, 10, 600000).value_or(settings.answerTimeout);
        else if (key == "lateanswer")
            settings.late = Fold(value) == "deny" ? LatePolicy::Deny : LatePolicy::Allow;
        else if (key == "status")
            settings.writeStatus = Number(value, 0, 1).value_or(1) == 1;
        else if (key == "statusfile")
            settings.statusFile = value;
    }
};

} // namespace

EngineSettings ReadEngineSettings(std::string_view text)
{
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    Parser parser;
    std::string section;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = Trim(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.starts_with('[')) {
            section = Fold(Trim(line.substr(1, line.find(']') - 1)));
            continue;
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos || line.starts_with(';'))
            continue;
        const std::string key = Fold(Trim(line.substr(0, equals)));
        std::string_view value = Trim(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        if (value.find('\0') != std::string_view::npos)
            continue; // no path and no number holds one
        if (section == "guard")
            parser.Guard(key, value);
        else if (section == "engine")
            parser.Engine(key, value);
    }
    for (auto& [index, folder] : parser.folders)
        parser.settings.folders.push_back(std::move(folder));
    return std::move(parser.settings);
}

} // namespace vlt::scan
