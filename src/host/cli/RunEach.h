/// @file RunEach.h
///
/// "vorn run --each": one job on many files.
#ifndef RUNEACH_H
#define RUNEACH_H

#include "cli/CommandTable.h"

#include <vector>

namespace host {

/// --each and the options that go with it, for the table of commands.
std::vector<OptionSpec> eachOptions();

/// Throws CommandError where one of them is given without --each.
void refuseEachOptions(const Arguments& arguments);

/// Runs the job for each file. Returns an ExitCode or throws CommandError.
int runEach(const Arguments& arguments);

} // namespace host

#endif
