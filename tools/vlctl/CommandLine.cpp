#include "tools/vlctl/CommandLine.h"

#include "tools/vlctl/Command.h"

#include <CLI/CLI.hpp>

namespace vlt::ctl
{
namespace
{

bool IsPosition(const char* name)
{
    return name[0] != '-';
}

} // namespace

Word Word::Noun(const char* name, const char* meaning) const
{
    CLI::App* const noun = m_app->add_subcommand(name, meaning);
    noun->require_subcommand(1);
    return Word(*noun);
}

Word Word::Verb(const char* name, const char* meaning, std::function<void()> action) const
{
    CLI::App* const verb = m_app->add_subcommand(name, meaning);
    verb->callback(std::move(action));
    return Word(*verb);
}

void Word::Footer(const char* text) const
{
    m_app->footer(text);
}

void Word::Text(const char* name, std::string& value, const char* meaning) const
{
    m_app->add_option(name, value, meaning)->required(IsPosition(name));
}

void Word::Texts(const char* name, std::vector<std::string>& values, const char* meaning) const
{
    m_app->add_option(name, values, meaning)->required(IsPosition(name))->expected(1, -1);
}

void Word::OptionalText(const char* name, std::string& value, const char* meaning) const
{
    m_app->add_option(name, value, meaning);
}

void Word::Number(const char* name, std::uint32_t& value, std::uint32_t least, std::uint32_t most,
                  const char* meaning) const
{
    CLI::Option* const option = m_app->add_option(name, value, meaning)->check(CLI::Range(least, most));
    if (IsPosition(name))
        option->required();
    else if (value >= least && value <= most)
        option->capture_default_str();
}

void Word::OneOf(const char* name, std::string& value, const std::vector<std::string>& words, const char* meaning) const
{
    m_app->add_option(name, value, meaning)
        ->required(IsPosition(name))
        ->check(CLI::IsMember(words))
        ->capture_default_str();
}

void Word::Flag(const char* name, bool& value, const char* meaning) const
{
    m_app->add_flag(name, value, meaning);
}

void Word::CheckedText(const char* name, std::string& value, const char* meaning, const Check& check) const
{
    m_app->add_option(name, value, meaning)->required(IsPosition(name))->check(check);
}

void Word::Json(Run& run) const
{
    m_app->add_flag("--json", run.json, "Print JSON (docs/vlctl.md has its members)");
}

bool Word::Given(const char* name) const
{
    return m_app->count(name) != 0;
}

} // namespace vlt::ctl
