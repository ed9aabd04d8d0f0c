#include "tools/vlctl/Answer.h"

#include "tools/vlctl/Host.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace vlt::ctl
{
namespace
{

Json WithSchema(const Json& object)
{
    Json result{{"schema", SchemaVersion}};
    result.update(object);
    return result;
}

std::string Dump(const Json& json, int indent)
{
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
}

// "processId" is "process id".
std::string Words(const std::string& name)
{
    std::string words;
    for (const char c : name) {
        if (std::isupper(static_cast<unsigned char>(c)) && !words.empty())
            words += ' ';
        words += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return words;
}

std::string Head(const std::string& name)
{
    std::string head = Words(name);
    std::transform(head.begin(), head.end(), head.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return head;
}

std::string ObjectText(const Json& object)
{
    std::string text;
    for (const auto& [name, value] : object.items())
        text += (text.empty() ? "" : ", ") + Words(name) + ' ' + ValueText(value);
    return text;
}

std::string ListText(const Json& list)
{
    std::string text;
    for (const Json& value : list)
        text += (text.empty() ? "" : ", ") + ValueText(value);
    return text;
}

// No cell but the last may push the others out of sight.
std::string Cell(const Json& value, bool last)
{
    constexpr std::size_t longest = 60;
    std::string text = ValueText(value);
    if (last || text.size() <= longest)
        return text;
    std::size_t end = longest - 3;
    while (end > 0 && (text[end] & 0xC0) == 0x80)
        --end;
    return text.substr(0, end) + "...";
}

} // namespace

std::string JsonLine(const Json& object)
{
    return Dump(WithSchema(object), -1);
}

std::string ValueText(const Json& value)
{
    if (value.is_null() || (value.is_structured() && value.empty()))
        return "-";
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    if (value.is_string())
        return Printable(FromUtf8(value.get<std::string>()));
    return value.is_object() ? ObjectText(value) : value.is_array() ? ListText(value) : value.dump();
}

std::string Painted(const std::string& text, const std::string& state)
{
    static const bool coloured = OutputTakesColours();
    static const std::map<std::string, const char*> colours{{"protected", "32"},   {"ok", "32"},      {"done", "32"},
                                                            {"degraded", "33"},    {"warning", "33"}, {"unknown", "33"},
                                                            {"not running", "31"}, {"problem", "31"}, {"failed", "31"}};
    const auto colour = colours.find(state);
    if (!coloured || colour == colours.end())
        return text;
    return "\x1B[" + std::string(colour->second) + 'm' + text + "\x1B[0m";
}

void PrintAnswer(const Run& run, const Json& object)
{
    if (run.json)
        return Print(Dump(WithSchema(object), 2));
    std::vector<std::vector<std::string>> rows;
    for (const auto& [name, value] : object.items()) {
        if (!value.is_array() || value.empty()) {
            rows.push_back({Words(name), Painted(ValueText(value), name == "protection" ? ValueText(value) : "")});
            continue;
        }
        for (std::size_t i = 0; i < value.size(); ++i)
            rows.push_back({i == 0 ? Words(name) : std::string(), ValueText(value[i])});
    }
    Print(Table(rows));
}

void PrintList(const Run& run, const char* name, const Json& rows)
{
    if (run.json)
        return Print(Dump(WithSchema({{name, rows}}), 2));
    if (rows.empty())
        return;
    std::vector<std::vector<std::string>> table(1);
    for (const auto& [member, value] : rows.front().items())
        table.front().push_back(Head(member));
    for (const Json& row : rows) {
        table.emplace_back();
        for (const Json& value : row)
            table.back().push_back(Cell(value, table.back().size() + 1 == row.size()));
    }
    Print(Table(table));
}

} // namespace vlt::ctl
