// The grammar of the tool: nouns, their verbs, and what follows them. A thin layer over the parser, whose
// headers only its own source file pays for.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace vlt::ctl
{

struct Run;

// A word of the command line: a noun with verbs below it, or a verb. Values are written to when the line is
// parsed, so they have to live that long; the action of the verb keeps them.
class Word
{
public:
    explicit Word(CLI::App& app) : m_app(&app) {}

    // A verb has to follow it.
    Word Noun(const char* name, const char* meaning) const;
    Word Verb(const char* name, const char* meaning, std::function<void()> action) const;
    void Footer(const char* text) const;

    // A name without dashes is that of a position, and required. The first line of an option's text is
    // shown with its default.
    void Text(const char* name, std::string& value, const char* meaning) const;
    void Texts(const char* name, std::vector<std::string>& values, const char* meaning) const; // one or more
    void OptionalText(const char* name, std::string& value, const char* meaning) const;
    void Number(const char* name, std::uint32_t& value, std::uint32_t least, std::uint32_t most,
                const char* meaning) const;
    void OneOf(const char* name, std::string& value, const std::vector<std::string>& words, const char* meaning) const;
    void Flag(const char* name, bool& value, const char* meaning) const;

    // The check says what is wrong with a value; nothing when it may be.
    using Check = std::function<std::string(const std::string&)>;
    void CheckedText(const char* name, std::string& value, const char* meaning, const Check& check) const;

    // --json, in the words of every command that has it.
    void Json(Run& run) const;

    // Whether it was on the line; for use in the action.
    bool Given(const char* name) const;

private:
    CLI::App* m_app;
};

} // namespace vlt::ctl
