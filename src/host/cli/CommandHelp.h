/// @file CommandHelp.h
///
/// The table of commands as help, manual pages and completion.
#ifndef COMMANDHELP_H
#define COMMANDHELP_H

#include "cli/CommandTable.h"

#include <string>

namespace host {

/// The names of an option: "-o,--output" into "-o" and "--output".
std::vector<std::string> optionNames(const OptionSpec& option);
/// The name under which Arguments knows it: the last one.
std::string longName(const OptionSpec& option);

/// "vorn run JOB.yaml [options]"
std::string usageLine(const Command& command);

/// What `vorn --help` and `vorn COMMAND --help` print.
std::string generalHelp();
std::string commandHelp(const Command& command);

/// Manual pages in the language of man(7).
std::string generalManual();
std::string commandManual(const Command& command);

/// A script that makes the shell ("bash", "zsh" or "fish") complete calls of vorn.
std::string completionScript(const std::string& shell);

} // namespace host

#endif
