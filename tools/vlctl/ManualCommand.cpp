// The tool's manual and its completion for bash, written from the commands themselves. For the build, not
// for people: the command is not listed.
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <CLI/CLI.hpp>

namespace vlt::ctl
{
namespace
{

using Commands = std::vector<const CLI::App*>;

Commands ListedCommands(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> ListedOptions(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

// A text for the manual: a backslash, a hyphen and a dot at the beginning of a line mean something there.
std::string Roff(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        const bool starts = out.empty() || out.back() == '\n';
        if (starts && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '-')
            out += '\\';
        out += c;
        if (c == '\\')
            out += 'e';
    }
    return out;
}

// "quarantine restore ID", the words by which it is called.
std::string Synopsis(const CLI::App& command, const std::string& words)
{
    std::string text = words;
    for (const CLI::Option* option : ListedOptions(command)) {
        if (!option->get_positional())
            continue;
        std::string name = option->get_name(true);
        if (option->get_expected_max() > 1)
            name += "...";
        text += option->get_required() ? ' ' + name : " [" + name + ']';
    }
    if (!ListedCommands(command).empty())
        text += " COMMAND";
    return text;
}

std::string OptionNames(const CLI::Option& option)
{
    if (option.get_positional())
        return option.get_name(true);
    std::string names = option.get_name(false, true);
    for (std::size_t at = 0; (at = names.find(',', at)) != std::string::npos; at += 2)
        names.insert(at + 1, " ");
    // "UINT:UINT in [1 - 3600]": a check repeats the type.
    const std::string type = option.get_type_name();
    if (option.get_expected_max() > 0 && !type.empty())
        names += ' ' + type.substr(type.find(':') + 1);
    return names;
}

void AppendPage(std::string& page, const CLI::App& command, const std::string& words)
{
    page += ".SS \"" + Roff(Synopsis(command, words)) + "\"\n" + Roff(command.get_description()) + '\n';
    for (const CLI::Option* option : ListedOptions(command)) {
        if (option->check_lname("help"))
            continue;
        page += ".TP\n.B " + Roff(OptionNames(*option)) + '\n' + Roff(option->get_description());
        if (!option->get_default_str().empty())
            page += Roff(" (default: " + option->get_default_str() + ')');
        page += '\n';
    }
    // A command without a footer of its own has its parent's.
    if (command.get_footer() != command.get_parent()->get_footer())
        page += ".PP\n" + Roff(command.get_footer()) + '\n';
    for (const CLI::App* below : ListedCommands(command))
        AppendPage(page, *below, words + ' ' + below->get_name());
}

std::string Page(const CLI::App& tool)
{
    std::string page = ".TH VLCTL 8 \"\" \"Veltrano\" \"System Administration\"\n.SH NAME\nvlctl \\- "
                       "operate the Veltrano Realtime Service\n.SH SYNOPSIS\n.B vlctl\nCOMMAND [OPTIONS]\n"
                       ".SH DESCRIPTION\n" +
                       Roff(tool.get_description()) + "\n.SH COMMANDS\n";
    for (const CLI::App* command : ListedCommands(tool))
        AppendPage(page, *command, command->get_name());
    page += ".SH EXIT STATUS\n" + Roff(tool.get_footer()) +
            "\n.SH FILES\n.TP\n.I /etc/veltrano/ArdScan.ini\nThe guarded folders.\n.TP\n.I "
            "/var/lib/veltrano\nEverything that the service keeps: settings, logs, quarantine.\n"
            ".SH SEE ALSO\n.BR systemctl (1),\n.BR journalctl (1)\n";
    return page;
}

// One line of the completion's table for each command: its words, then what may follow.
void AppendWords(std::string& table, const CLI::App& command, const std::string& words)
{
    std::string next;
    for (const CLI::App* below : ListedCommands(command))
        next += below->get_name() + ' ';
    for (const CLI::Option* option : ListedOptions(command))
        for (const std::string& name : option->get_lnames())
            next += "--" + name + ' ';
    if (!next.empty())
        next.pop_back();
    table += "    [\"" + words + "\"]=\"" + next + "\"\n";
    for (const CLI::App* below : ListedCommands(command))
        AppendWords(table, *below, words + ' ' + below->get_name());
}

// The longest run of words that is a command says what may follow; where nothing does, a file may.
std::string Completion(const CLI::App& tool)
{
    std::string script = "# Completion of vlctl for bash.\ndeclare -A _vlctl_next=(\n";
    AppendWords(script, tool, tool.get_name());
    return script + ")\n\n"
                    "_vlctl() {\n"
                    "    local command=vlctl word\n"
                    "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
                    "        [[ ${_vlctl_next[$command $word]+known} ]] && command+=\" $word\"\n"
                    "    done\n"
                    "    mapfile -t COMPREPLY < <(compgen -W \"${_vlctl_next[$command]}\" -- \"$2\")\n"
                    "}\n"
                    "complete -o default -F _vlctl vlctl\n";
}

} // namespace

void AddManualCommand(CLI::App& app)
{
    CLI::App* const manual = app.add_subcommand("manual", "Write the manual page or the completion for bash");
    manual->group("");
    manual->require_subcommand(1);
    manual->add_subcommand("page", "For man")->callback([&app] { Print(Page(app)); });
    manual->add_subcommand("bash", "For bash")->callback([&app] { Print(Completion(app)); });
}

} // namespace vlt::ctl
