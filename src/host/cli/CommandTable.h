/// @file CommandTable.h
///
/// The one table of sub-commands. Parsing, `--help`, the manual pages and the completion of shells
/// are all made from it.
#ifndef COMMANDTABLE_H
#define COMMANDTABLE_H

#include "base/CommandError.h"

#include <map>
#include <string>
#include <vector>

namespace host {

/// The type of a value, for the check of a call and for completion.
enum class ValueKind
{
    text,
    integer,
    number,
    file,
    directory,
    module,  ///< the name of a module in VORN_HOME
    pattern, ///< of file names, which the shell must not replace by what it matches
    choice
};

/// An option of a command.
struct OptionSpec
{
    std::string names; ///< as they are written, the long name last: "-o,--output"
    std::string value; ///< what stands for the value in the help, "FILE"; empty: a switch
    std::string help;  ///< one sentence without a full stop
    ValueKind kind = ValueKind::text;
    std::vector<std::string> choices = {}; ///< of ValueKind::choice
    bool repeated = false;                 ///< may be given several times
    bool required = false;
};

/// A word of a call that is not an option.
struct ArgumentSpec
{
    std::string name; ///< "JOB.yaml"
    std::string help;
    ValueKind kind = ValueKind::text;
    bool required = true;
    bool repeated = false;
    std::vector<std::string> choices = {}; ///< of ValueKind::choice
};

/// A call and what it does.
struct ExampleSpec
{
    std::string call; ///< "vorn run job.yaml --report out"
    std::string what; ///< what it does
};

/// The words of a call, read by the names in the table: the long name of an option ("--output"),
/// the name of an argument ("JOB.yaml").
class Arguments
{
public:
    /// Whether the option or the argument was given.
    bool has(const std::string& name) const { return values.count(name) != 0; }
    /// The last value given, or `otherwise`.
    std::string text(const std::string& name, const std::string& otherwise = "") const;
    /// All values given, in order; none when it was not given.
    std::vector<std::string> texts(const std::string& name) const;
    /// Checked when the call was parsed.
    long long integer(const std::string& name, long long otherwise) const;
    double number(const std::string& name, double otherwise) const;

    /// By name, the values given; a switch has one empty value. Names that were not given are
    /// absent.
    std::map<std::string, std::vector<std::string>> values;
};

/// A sub-command.
struct Command
{
    std::string name; ///< as it is called, "run"
    /// Does the work: results to standard output, everything else to standard error. Returns an
    /// ExitCode or throws CommandError.
    int (*function)(const Arguments& arguments);
    std::string summary;     ///< one line
    std::string description; ///< paragraphs, separated by an empty line
    std::vector<ArgumentSpec> arguments;
    std::vector<OptionSpec> options;
    std::vector<ExampleSpec> examples;
};

/// All sub-commands, in the order in which the help lists them.
const std::vector<Command>& commandTable();

/// Calls that show what the command as a whole does.
std::vector<ExampleSpec> generalExamples();

/// @name The entries of the table, each in the file of its command (cmd_run.cpp, …)
/// @{
Command runCommand();
Command checkCommand();
Command inspectCommand();
Command graphCommand();
Command headerCommand();
Command plotCommand();
Command metaCommand();
Command planCommand();
Command partCommand();
Command mergeCommand();
Command statusCommand();
Command newModuleCommand();
Command testCommand();
Command replayCommand();
Command submitCommand();
Command manualCommand();
Command completionCommand();
/// @}

/// Parses a call of `vorn` and runs its sub-command. Returns the exit code; errors have been
/// printed.
int runCommandLine(const std::vector<std::string>& words);

} // namespace host

#endif
