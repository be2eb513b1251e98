// Help and manual pages. Their content comes from the table of commands, or stands here once.
#include "cli/CommandHelp.h"

#include "base/Text.h"
#include "base/TextLayout.h"

#include <algorithm>
#include <fmt/format.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

constexpr int helpWidth = 80;
constexpr int helpIndent = 2;

const char* const summary = "run seismic processing jobs and look at SEG-Y files";

const char* const introduction =
    "vorn runs a job, described in a YAML file, with the modules of the VORN kernel. It checks a "
    "job, draws it, runs it and reports what it did; and it shows what is in SEG-Y files.";

struct Fact
{
    const char* name;
    const char* text;
};

constexpr Fact exitCodes[] = {
    {"0", "done"},
    {"1", "the job ran and some module reported an error"},
    {"2", "the job, a file or the call is wrong"},
    {"130", "interrupted with Ctrl-C"},
};

constexpr Fact variables[] = {
    {"VORN_HOME", "module tree, with module libraries and manifests in its lib; when not set, the "
                  "one beside the program"},
    {"VORN_SCRATCH", "directory of scratch files for jobs that do not set one"},
    {"VORN_SCRATCH_SIZE", "traces kept in memory by jobs that do not set a number"},
};

std::string optionHead(const OptionSpec& option)
{
    return joined(optionNames(option), ", ") + (option.value.empty() ? "" : " " + option.value);
}

std::string optionText(const OptionSpec& option)
{
    std::string text = option.help;
    if (!option.choices.empty())
        text += ": " + joined(option.choices, ", ");
    if (option.repeated)
        text += "; may be repeated";
    return text;
}

// Names in a column, explanations beside them.
std::string definitions(const std::vector<std::pair<std::string, std::string>>& rows)
{
    constexpr int widestName = 26;
    int column = 0;
    for (const auto& row : rows) {
        if (displayWidth(row.first) <= widestName)
            column = std::max(column, displayWidth(row.first));
    }
    std::string result;
    const int indent = helpIndent + column + 2;
    for (const auto& [name, text] : rows) {
        const std::string head = std::string(helpIndent, ' ') + padRight(name, column) + "  ";
        const std::string body = wrapped(text, helpWidth, indent);
        if (displayWidth(name) > column)
            result += std::string(helpIndent, ' ') + name + '\n' + body;
        else
            result += head + body.substr(std::min<std::size_t>(static_cast<std::size_t>(indent),
                                                               body.size()));
    }
    return result;
}

std::string examplesText(const std::vector<ExampleSpec>& examples)
{
    std::string text;
    for (const ExampleSpec& example : examples)
        text += fmt::format("  {}\n{}", example.call, wrapped(example.what, helpWidth, 6));
    return text;
}

std::vector<std::pair<std::string, std::string>> optionRows(const std::vector<OptionSpec>& options)
{
    std::vector<std::pair<std::string, std::string>> rows;
    rows.reserve(options.size() + 1);
    for (const OptionSpec& option : options)
        rows.emplace_back(optionHead(option), optionText(option));
    rows.emplace_back("-h, --help", "show this help");
    return rows;
}

template <std::size_t N>
std::vector<std::pair<std::string, std::string>> factRows(const Fact (&facts)[N])
{
    std::vector<std::pair<std::string, std::string>> rows;
    for (const Fact& fact : facts)
        rows.emplace_back(fact.name, fact.text);
    return rows;
}

// ---- man(7) ----

std::string roff(const std::string& text)
{
    std::string result;
    bool lineBegins = true;
    for (const char c : text) {
        if (lineBegins && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
        lineBegins = c == '\n';
    }
    return result;
}

std::string manualHead(const std::string& page, const std::string& name, const std::string& text)
{
    std::string upper = page;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return fmt::format(".TH \"{}\" 1 \"\" \"VORN {}\" \"VORN\"\n.SH NAME\n{} \\- {}\n", roff(upper),
                       VORN_VERSION, roff(name), roff(text));
}

std::string manualParagraphs(const std::string& text)
{
    std::string result;
    for (const std::string& line : splitLines(text))
        result += trimmed(line).empty() ? ".PP\n" : roff(line) + "\n";
    return result;
}

std::string manualList(const std::vector<std::pair<std::string, std::string>>& rows)
{
    std::string result;
    for (const auto& [name, text] : rows)
        result += fmt::format(".TP\n.B {}\n{}\n", roff(name), roff(text));
    return result;
}

std::string manualExamples(const std::vector<ExampleSpec>& examples)
{
    std::string result;
    for (const ExampleSpec& example : examples)
        result += fmt::format(".PP\n{}:\n.PP\n.RS\n.nf\n{}\n.fi\n.RE\n", roff(example.what),
                              roff(example.call));
    return result;
}

std::string commonManual()
{
    return ".SH \"EXIT STATUS\"\n" + manualList(factRows(exitCodes)) + ".SH ENVIRONMENT\n" +
           manualList(factRows(variables));
}

std::vector<std::pair<std::string, std::string>> commandRows(const std::string& prefix)
{
    std::vector<std::pair<std::string, std::string>> rows;
    for (const Command& command : commandTable())
        rows.emplace_back(prefix + command.name, command.summary);
    return rows;
}

} // namespace

std::vector<std::string> optionNames(const OptionSpec& option)
{
    std::vector<std::string> names;
    std::string rest = option.names;
    for (auto comma = rest.find(','); comma != std::string::npos; comma = rest.find(',')) {
        names.push_back(rest.substr(0, comma));
        rest.erase(0, comma + 1);
    }
    names.push_back(rest);
    return names;
}

std::string longName(const OptionSpec& option)
{
    return optionNames(option).back();
}

std::string usageLine(const Command& command)
{
    std::string line = "vorn " + command.name;
    for (const ArgumentSpec& argument : command.arguments) {
        const std::string name = argument.name + (argument.repeated ? "..." : "");
        line += argument.required ? " " + name : " [" + name + "]";
    }
    for (const OptionSpec& option : command.options) {
        if (option.required)
            line += " " + optionNames(option).front() + " " + option.value;
    }
    return line + " [OPTION]...";
}

std::string generalHelp()
{
    return fmt::format(
        "usage: vorn COMMAND [ARGUMENT]... [OPTION]...\n\n{}\n"
        "Commands:\n{}\n"
        "Options:\n{}\n"
        "Examples:\n{}\n"
        "Exit codes:\n{}\n"
        "Environment:\n{}\n"
        "\"vorn COMMAND --help\" explains a command.\n",
        wrapped(introduction, helpWidth, 0), definitions(commandRows("")),
        definitions({{"-h, --help", "show this help"}, {"--version", "show the version"}}),
        examplesText(generalExamples()), definitions(factRows(exitCodes)),
        definitions(factRows(variables)));
}

std::string commandHelp(const Command& command)
{
    std::string text = fmt::format("usage: {}\n\n{}\n", usageLine(command),
                                   wrapped(command.description, helpWidth, 0));
    std::vector<std::pair<std::string, std::string>> arguments;
    for (const ArgumentSpec& argument : command.arguments)
        arguments.emplace_back(argument.name, argument.help);
    if (!arguments.empty())
        text += "Arguments:\n" + definitions(arguments) + "\n";
    text += "Options:\n" + definitions(optionRows(command.options));
    if (!command.examples.empty())
        text += "\nExamples:\n" + examplesText(command.examples);
    return text;
}

std::string generalManual()
{
    return manualHead("vorn", "vorn", summary) +
           ".SH SYNOPSIS\n.B vorn\nCOMMAND [ARGUMENT]... [OPTION]...\n.SH DESCRIPTION\n" +
           manualParagraphs(introduction) + ".SH COMMANDS\n" + manualList(commandRows("vorn-")) +
           ".SH OPTIONS\n" +
           manualList({{"-h, --help", "show this help"}, {"--version", "show the version"}}) +
           ".SH EXAMPLES\n" + manualExamples(generalExamples()) + commonManual();
}

std::string commandManual(const Command& command)
{
    const std::string page = "vorn-" + command.name;
    std::string text =
        manualHead(page, page, lowerCase(command.summary.substr(0, 1)) + command.summary.substr(1));
    text += ".SH SYNOPSIS\n" + roff(usageLine(command)) + "\n";
    text += ".SH DESCRIPTION\n" + manualParagraphs(command.description);
    if (!command.arguments.empty()) {
        std::vector<std::pair<std::string, std::string>> arguments;
        for (const ArgumentSpec& argument : command.arguments)
            arguments.emplace_back(argument.name, argument.help);
        text += ".SH ARGUMENTS\n" + manualList(arguments);
    }
    text += ".SH OPTIONS\n" + manualList(optionRows(command.options));
    if (!command.examples.empty())
        text += ".SH EXAMPLES\n" + manualExamples(command.examples);
    return text + commonManual() + ".SH \"SEE ALSO\"\n.BR vorn (1)\n";
}

} // namespace host
