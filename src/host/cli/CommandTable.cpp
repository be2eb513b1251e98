#include "cli/CommandTable.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "cli/CommandHelp.h"
#include "job/YamlFields.h"
#include "run/ProcessEnd.h"

#include <algorithm>
#include <cctype>
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

// The words of a call as the table describes them: "--output FILE", "--output=FILE", "-o FILE",
// "-oFILE", and switches together, "-qv". After "--" no word is an option. Help, manual pages and
// completion come from the table, so that splitting the words is all that is left to do: a library
// for it would take as many lines to tell it what the table says and what its errors mean.
class CallParser
{
public:
    explicit CallParser(const Command& called) : command(called) {}

    // True: the help is wanted, and nothing else counts.
    bool parse(const std::vector<std::string>& call)
    {
        split(call);
        if (help)
            return true;
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
    // An unknown option is refused at the end only: the help may be wanted further on.
    void split(const std::vector<std::string>& call)
    {
        bool onlyWords = false;
        for (std::size_t i = 0; i < call.size() && !help; ++i) {
            const std::string& word = call[i];
            const std::string* next = i + 1 < call.size() ? &call[i + 1] : nullptr;
            if (onlyWords || word.size() < 2 || word[0] != '-')
                words.push_back(word);
            else if (word == "--")
                onlyWords = true;
            else if (word.starts_with("--") ? takeLong(word, next) : takeShort(word, next))
                ++i;
        }
        if (!help && !unknown.empty())
            refuse(command, "there is no option " + quote(unknown) +
                                suggestion(unknown, allOptionNames(command), ""));
    }

    // "--option", "--option=VALUE" or "--option VALUE": whether it took `next`, the word after it.
    bool takeLong(const std::string& word, const std::string* next)
    {
        const std::string name = word.substr(0, word.find('='));
        const bool hasValue = name.size() < word.size();
        const OptionSpec* option = find(name, name);
        if (help && hasValue)
            refuse(command, name + " takes no value");
        if (option == nullptr)
            return false;
        if (option->value.empty()) {
            if (hasValue)
                refuse(command, name + " takes no value");
            arguments.values[longName(*option)] = {""};
            return false;
        }
        if (!hasValue)
            return takeNext(*option, next);
        if (name.size() + 1 == word.size())
            refuse(command, longName(*option) + " needs a value");
        addValue(*option, word.substr(name.size() + 1));
        return false;
    }

    // "-q", "-oVALUE", "-o VALUE", or several switches and perhaps a last such option in one word.
    bool takeShort(const std::string& word, const std::string* next)
    {
        for (std::size_t i = 1; i < word.size(); ++i) {
            // What is no letter is shown with all of the word, as "-q=1" and characters of UTF-8.
            const bool isLetter = std::isalnum(static_cast<unsigned char>(word[i])) != 0;
            const std::string name = {'-', word[i]};
            const OptionSpec* option = find(name, isLetter ? name : word);
            if (option == nullptr)
                return false;
            if (option->value.empty()) {
                arguments.values[longName(*option)] = {""};
                continue;
            }
            if (i + 1 == word.size())
                return takeNext(*option, next);
            addValue(*option, word.substr(i + 1));
            return false;
        }
        return false;
    }

    bool takeNext(const OptionSpec& option, const std::string* next)
    {
        if (next == nullptr)
            refuse(command, longName(option) + " needs a value");
        addValue(option, *next);
        return true;
    }

    void addValue(const OptionSpec& option, const std::string& value)
    {
        arguments.values[longName(option)].push_back(value);
    }

    // The option of that name; null for the help, which every command has, and for an unknown one,
    // which is shown as `shown`.
    const OptionSpec* find(const std::string& name, const std::string& shown)
    {
        for (const OptionSpec& option : command.options) {
            const std::vector<std::string> names = optionNames(option);
            if (std::find(names.begin(), names.end(), name) != names.end())
                return &option;
        }
        if (name == "-h" || name == "--help")
            help = true;
        else if (unknown.empty())
            unknown = shown;
        return nullptr;
    }

    void check(const OptionSpec& option)
    {
        const std::vector<std::string>& values = arguments.values[longName(option)];
        if (option.required && values.empty())
            refuse(command, joined(optionNames(option), " or ") + " is missing");
        if (values.size() > 1 && !option.repeated)
            refuse(command, longName(option) + " is given more than once");
        for (const std::string& value : values)
            checkValue(command, option, value);
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
            refuse(command, quote(words[next]) + " is one argument too many" + patternHint());
    }

    // Without quotes, the shell puts the names of all files in the place of a pattern.
    std::string patternHint() const
    {
        for (const OptionSpec& option : command.options) {
            const auto given = arguments.values.find(longName(option));
            if (option.kind == ValueKind::pattern && given != arguments.values.end() &&
                !given->second.empty())
                return fmt::format("; put the pattern of {} in quotes, as in {} 'data/*.sgy'",
                                   longName(option), longName(option));
        }
        return "";
    }

    const Command& command;
    std::vector<std::string> words; // that are neither options nor values of options
    std::string unknown;            // the first option that the command does not have
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

// A result that could not be written is an error.
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
        runCommand(),    checkCommand(),      inspectCommand(),   graphCommand(), headerCommand(),
        plotCommand(),   metaCommand(),       planCommand(),      partCommand(),  mergeCommand(),
        statusCommand(), submitCommand(),     newModuleCommand(), testCommand(),  replayCommand(),
        manualCommand(), completionCommand(),
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
    const EndWatch ends;
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
