/// @file RunJob.h
///
/// What "vorn run" does with a job that has been checked, and "vorn merge" with one whose parts
/// have ended.
#ifndef RUNJOB_H
#define RUNJOB_H

#include "cli/CommandTable.h"
#include "cli/JobLoader.h"
#include "parts/PartsOfJob.h"

#include <vector>

namespace host {

/// The options that `runJob` understands, for the table of commands.
std::vector<OptionSpec> runOptions();

/// Throws CommandError where `--time-limit` is not a duration.
void checkTimeLimit(const Arguments& arguments);

/// Runs the job, shows messages, progress and what it did, and writes reports and pictures as the
/// options say. With `parts`, they do their work first, and the job merges what they have done.
/// Returns an ExitCode or throws CommandError. Requires: the job has no errors, and its files are
/// among the used ones (see useFilesOf).
int runJob(const Arguments& arguments, const LoadedJob& loaded, PartsOfJob* parts = nullptr);

} // namespace host

#endif
