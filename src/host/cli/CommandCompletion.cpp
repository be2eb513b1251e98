// Completion of calls in shells, from the table of commands.
#include "base/Text.h"
#include "cli/CommandHelp.h"

#include <fmt/format.h>

namespace host {

namespace {

std::string inSingleQuotes(const std::string& text)
{
    std::string result = "'";
    for (const char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string commandWords()
{
    std::vector<std::string> names;
    for (const Command& command : commandTable())
        names.push_back(command.name);
    return joined(names, " ");
}

std::string optionWords(const Command& command)
{
    std::vector<std::string> names;
    for (const OptionSpec& option : command.options) {
        for (const std::string& name : optionNames(option))
            names.push_back(name);
    }
    names.emplace_back("--help");
    return joined(names, " ");
}

// ---- bash ----

std::string bashValues(ValueKind kind, const std::vector<std::string>& choices)
{
    switch (kind) {
    case ValueKind::file:
    case ValueKind::pattern:
        return "COMPREPLY=($(compgen -f -- \"$word\")); compopt -o filenames 2>/dev/null";
    case ValueKind::directory:
        return "COMPREPLY=($(compgen -d -- \"$word\")); compopt -o filenames 2>/dev/null";
    case ValueKind::module:
        return "COMPREPLY=($(compgen -W \"$(vorn inspect --names 2>/dev/null)\" -- \"$word\"))";
    case ValueKind::choice:
        return fmt::format("COMPREPLY=($(compgen -W {} -- \"$word\"))",
                           inSingleQuotes(joined(choices, " ")));
    default:
        return ":";
    }
}

std::string bashCommand(const Command& command)
{
    std::string text = fmt::format("    {})\n        case \"$before\" in\n", command.name);
    for (const OptionSpec& option : command.options) {
        if (!option.value.empty())
            text += fmt::format("        {}) {}; return ;;\n", joined(optionNames(option), "|"),
                                bashValues(option.kind, option.choices));
    }
    text += "        esac\n        case \"$word\" in\n";
    text += fmt::format("        -*) COMPREPLY=($(compgen -W {} -- \"$word\")) ;;\n",
                        inSingleQuotes(optionWords(command)));
    if (!command.arguments.empty())
        text += fmt::format("        *) {} ;;\n", bashValues(command.arguments.front().kind,
                                                             command.arguments.front().choices));
    return text + "        esac\n        ;;\n";
}

std::string bashScript()
{
    std::string text = "# bash completion of vorn\n_vorn() {\n"
                       "    local word=${COMP_WORDS[COMP_CWORD]}\n"
                       "    local before=${COMP_WORDS[COMP_CWORD-1]}\n"
                       "    COMPREPLY=()\n"
                       "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n";
    text +=
        fmt::format("        COMPREPLY=($(compgen -W {} -- \"$word\"))\n        return\n    fi\n",
                    inSingleQuotes(commandWords() + " --help --version"));
    text += "    case \"${COMP_WORDS[1]}\" in\n";
    for (const Command& command : commandTable())
        text += bashCommand(command);
    return text + "    esac\n}\ncomplete -F _vorn vorn\n";
}

// ---- zsh ----

std::string zshValues(ValueKind kind, const std::vector<std::string>& choices)
{
    switch (kind) {
    case ValueKind::file:
    case ValueKind::pattern:
        return "_files";
    case ValueKind::directory:
        return "_files -/";
    case ValueKind::module:
        return "($(vorn inspect --names 2>/dev/null))";
    case ValueKind::choice:
        return "(" + joined(choices, " ") + ")";
    default:
        return " ";
    }
}

// Brackets and colons have a meaning there.
std::string zshText(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\')
            result += '\\';
        result += c;
    }
    return result;
}

std::string zshCommand(const Command& command)
{
    std::string text = fmt::format("    {})\n        _arguments \\\n", command.name);
    for (const OptionSpec& option : command.options) {
        for (const std::string& name : optionNames(option)) {
            std::string spec =
                (option.repeated ? "*" : "") + name + "[" + zshText(option.help) + "]";
            if (!option.value.empty())
                spec += ":" + zshText(option.value) + ":" + zshValues(option.kind, option.choices);
            text += "            " + inSingleQuotes(spec) + " \\\n";
        }
    }
    text += "            '--help[show this help]'";
    for (const ArgumentSpec& argument : command.arguments)
        text += " \\\n            " +
                inSingleQuotes((argument.repeated ? "*:" : ":") + zshText(argument.name) + ":" +
                               zshValues(argument.kind, argument.choices));
    return text + "\n        ;;\n";
}

std::string zshScript()
{
    std::string text = "#compdef vorn\n_vorn() {\n    if (( CURRENT == 2 )); then\n"
                       "        local -a commands=(\n";
    for (const Command& command : commandTable())
        text +=
            "            " + inSingleQuotes(command.name + ":" + zshText(command.summary)) + "\n";
    text += "        )\n        _describe command commands\n        return\n    fi\n"
            "    local command=$words[2]\n"
            "    shift words\n    (( CURRENT-- ))\n    case $command in\n";
    for (const Command& command : commandTable())
        text += zshCommand(command);
    return text + "    esac\n}\nif [ \"$funcstack[1]\" = _vorn ]; then\n    _vorn \"$@\"\nelse\n"
                  "    compdef _vorn vorn\nfi\n";
}

// ---- fish ----

std::string fishValues(ValueKind kind, const std::vector<std::string>& choices)
{
    switch (kind) {
    case ValueKind::file:
    case ValueKind::pattern:
        return " -F";
    case ValueKind::directory:
        return " -f -a '(__fish_complete_directories)'";
    case ValueKind::module:
        return " -f -a '(vorn inspect --names 2>/dev/null)'";
    case ValueKind::choice:
        return " -f -a " + inSingleQuotes(joined(choices, " "));
    default:
        return " -f";
    }
}

std::string fishCommand(const Command& command)
{
    const std::string when =
        fmt::format("complete -c vorn -n '__fish_seen_subcommand_from {}'", command.name);
    std::string text = fmt::format("complete -c vorn -n __fish_use_subcommand -f -a {} -d {}\n",
                                   command.name, inSingleQuotes(command.summary));
    for (const OptionSpec& option : command.options) {
        text += when;
        for (const std::string& name : optionNames(option))
            text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        if (!option.value.empty())
            text += " -r" + fishValues(option.kind, option.choices);
        text += " -d " + inSingleQuotes(option.help) + "\n";
    }
    for (const ArgumentSpec& argument : command.arguments)
        text += when + fishValues(argument.kind, argument.choices) + "\n";
    return text + when + " -l help -d 'show this help'\n";
}

std::string fishScript()
{
    std::string text = "# fish completion of vorn\n";
    for (const Command& command : commandTable())
        text += fishCommand(command);
    return text;
}

} // namespace

std::string completionScript(const std::string& shell)
{
    if (shell == "bash")
        return bashScript();
    return shell == "zsh" ? zshScript() : fishScript();
}

} // namespace host
