#include "cli/CommandTable.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "cli/CommandHelp.h"
#include "job/YamlFields.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

const Command* findCommand(const std::string& name)
{
    for (const Command& command : commandTable()) {
        if (command.name == name)
            return &command;
    }
    return nullptr;
}

void print(std::FILE* stream, const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stream);
}

// "vorn: " before each line: one error, one line.
void printErrors(const std::string& text)
{
    for (const std::string& line : splitLines(text))
        print(stderr, "vorn: " + escaped(line) + "\n");
}

[[noreturn]] void refuse(const Command& command, const std::string& text)
{
    throw CommandError(
        fmt::format("{}: {} (see \"vorn {} --help\")", command.name, text, command.name));
}

std::string kindText(ValueKind kind)
{
    return kind == ValueKind::integer ? "a whole number" : "a number";
}

void checkValue(const Command& command, const OptionSpec& option, const std::string& value)
{
    const std::string name = longName(option);
    const bool good = option.kind == ValueKind::integer  ? parseInteger(value).has_value()
                      : option.kind == ValueKind::number ? parseNumber(value).has_value()
                                                         : true;
    if (!good)
        refuse(command,
               fmt::format("{} is {}; expected {}", name, quote(value), kindText(option.kind)));
    const auto& choices = option.choices;
    if (option.kind == ValueKind::choice &&
        std::find(choices.begin(), choices.end(), value) == choices.end())
        refuse(command, fmt::format("{} is {}; expected one of {}", name, quote(value),
                                    joined(choices, ", ")));
}

void checkArgument(const Command& command, const ArgumentSpec& argument,
                   const std::vector<std::string>& values)
{
    if (argument.required && values.empty())
        refuse(command, argument.name + " is missing");
    for (const std::string& value : values) {
        if (argument.kind == ValueKind::choice &&
            std::find(argument.choices.begin(), argument.choices.end(), value) ==
                argument.choices.end())
            refuse(command, fmt::format("{} is {}; expected one of {}", argument.name, quote(value),
                                        joined(argument.choices, ", ")));
    }
}

std::vector<std::string> allOptionNames(const Command& command)
{
    std::vector<std::string> names = {"--help"};
    for (const OptionSpec& option : command.options)
        names.push_back(longName(option));
    return names;
}

// The words of a call as the table describes them.
class CallParser
{
public:
    explicit CallParser(const Command& called) : command(called)
    {
        app.set_help_flag();
        app.allow_extras();
        app.add_flag("-h,--help", help);
        for (const OptionSpec& option : command.options)
            add(option);
        app.add_option("words", words)->expected(0, -1);
    }

    // True: the help is wanted, and nothing else counts.
    bool parse(std::vector<std::string> call)
    {
        std::reverse(call.begin(), call.end()); // as the library wants them
        try {
            app.parse(call);
        } catch (const CLI::ArgumentMismatch& error) {
            const std::string text = error.what(); // "--set: 1 required TEXT missing"
            refuse(command, escaped(text.substr(0, text.find(':'))) + " needs a value");
        } catch (const CLI::ParseError& error) {
            refuse(command, escaped(error.what()));
        }
        if (help)
            return true;
        refuseUnknownOptions();
        distributeWords();
        for (const OptionSpec& option : command.options)
            check(option);
        for (const ArgumentSpec& argument : command.arguments)
            checkArgument(command, argument, arguments.values[argument.name]);
        std::erase_if(arguments.values, [](const auto& one) { return one.second.empty(); });
        return false;
    }

    Arguments arguments;

private:
    void add(const OptionSpec& option)
    {
        const std::string name = longName(option);
        if (option.value.empty())
            app.add_flag(option.names, flags[name]);
        else
            app.add_option(option.names, arguments.values[name])
                ->expected(1)
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                ->allow_extra_args(false);
    }

    void check(const OptionSpec& option)
    {
        const std::string name = longName(option);
        std::vector<std::string>& values = arguments.values[name];
        if (flags.count(name) != 0 && flags[name])
            values = {""};
        if (option.required && values.empty())
            refuse(command, joined(optionNames(option), " or ") + " is missing");
        if (values.size() > 1 && !option.repeated)
            refuse(command, name + " is given more than once");
        for (const std::string& value : values)
            checkValue(command, option, value);
    }

    void refuseUnknownOptions() const
    {
        for (const std::string& word : app.remaining()) {
            const std::string name = word.substr(0, word.find('='));
            if (name != "--")
                refuse(command, "there is no option " + quote(name) +
                                    suggestion(name, allOptionNames(command), ""));
        }
    }

    void distributeWords()
    {
        std::size_t next = 0;
        for (const ArgumentSpec& argument : command.arguments) {
            std::vector<std::string>& values = arguments.values[argument.name];
            while (next < words.size() && (argument.repeated || values.empty()))
                values.push_back(words[next++]);
        }
        if (next < words.size())
            refuse(command, quote(words[next]) + " is one word too many");
    }

    const Command& command;
    CLI::App app;
    std::map<std::string, bool> flags;
    std::vector<std::string> words;
    bool help = false;
};

int runParsed(const Command& command, const std::vector<std::string>& words)
{
    CallParser parser(command);
    if (parser.parse(words)) {
        print(stdout, commandHelp(command));
        return exitDone;
    }
    return command.function(parser.arguments);
}

int dispatch(const std::vector<std::string>& words)
{
    if (words.empty()) {
        print(stderr, generalHelp());
        return exitWrongCall;
    }
    const std::string& name = words.front();
    if (name == "-h" || name == "--help" || name == "help") {
        const Command* command = words.size() > 1 ? findCommand(words[1]) : nullptr;
        print(stdout, command != nullptr ? commandHelp(*command) : generalHelp());
        return exitDone;
    }
    if (name == "--version") {
        print(stdout, "vorn " VORN_VERSION "\n");
        return exitDone;
    }
    const Command* command = findCommand(name);
    if (command == nullptr) {
        std::vector<std::string> names = {"--help", "--version"};
        for (const Command& one : commandTable())
            names.push_back(one.name);
        throw CommandError(fmt::format("there is no command {}{}", quote(name),
                                       suggestion(name, names, "there are")));
    }
    return runParsed(*command, {words.begin() + 1, words.end()});
}

// A result that could not be written is no result.
int flushed(int code)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return code;
    printErrors("the output could not be written");
    return code == exitDone ? exitWrongCall : code;
}

} // namespace

std::string Arguments::text(const std::string& name, const std::string& otherwise) const
{
    const auto found = values.find(name);
    return found != values.end() && !found->second.empty() ? found->second.back() : otherwise;
}

std::vector<std::string> Arguments::texts(const std::string& name) const
{
    const auto found = values.find(name);
    return found != values.end() ? found->second : std::vector<std::string>();
}

long long Arguments::integer(const std::string& name, long long otherwise) const
{
    return parseInteger(text(name)).value_or(otherwise);
}

double Arguments::number(const std::string& name, double otherwise) const
{
    return parseNumber(text(name)).value_or(otherwise);
}

const std::vector<Command>& commandTable()
{
    static const std::vector<Command> table = {
        runCommand(),  checkCommand(), inspectCommand(), graphCommand(),      headerCommand(),
        plotCommand(), metaCommand(),  manualCommand(),  completionCommand(),
    };
    return table;
}

std::vector<ExampleSpec> generalExamples()
{
    return {{"vorn header line.sgy", "what is in a SEG-Y file"},
            {"vorn plot line.sgy -o line.png", "a picture of it"},
            {"vorn check job.yaml", "is the job correct?"},
            {"vorn run job.yaml --report out", "run it, with pictures and a report in out"}};
}

int runCommandLine(const std::vector<std::string>& words)
{
    try {
        return flushed(dispatch(words));
    } catch (const CommandError& error) {
        flushed(error.code);
        printErrors(error.what());
        return error.code;
    } catch (const std::bad_alloc&) {
        // Without the memory that a text would take.
        constexpr char text[] = "vorn: there is not enough memory\n";
        std::fwrite(text, 1, sizeof text - 1, stderr);
    } catch (const std::exception& error) {
        printErrors(error.what());
    }
    return exitWrongCall;
}

} // namespace host
