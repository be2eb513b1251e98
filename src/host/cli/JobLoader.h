/// @file JobLoader.h
///
/// What every command with a job file does first: read it, apply the options of the command line,
/// check it.
#ifndef JOBLOADER_H
#define JOBLOADER_H

#include "base/Diagnostics.h"
#include "cli/CommandTable.h"
#include "job/JobFile.h"
#include "job/ModuleCatalog.h"
#include "job/ResolvedJob.h"

#include <functional>

namespace host {

/// A job that has been read and checked.
struct LoadedJob
{
    std::string path; ///< as given
    ResolvedJob job;  ///< to be used only when there are no errors
    Diagnostics diagnostics;
};

/// The options that `loadJob` understands, for the table of commands.
std::vector<OptionSpec> jobOptions();
/// The argument that names the job file, for the table of commands.
ArgumentSpec jobArgument();

/// The directories of --allow-modules-from. Throws CommandError where one is not a directory.
std::vector<std::string> allowedDirectories(const Arguments& arguments);

/// What is to be changed in a job between reading and checking it.
using JobChange =
    std::function<void(JobFile& job, const ModuleCatalog& catalog, Diagnostics& diagnostics)>;

/// Throws CommandError only when the module tree is missing. `change` is called after the options
/// of the command line have been applied, unless the job file could not be read.
LoadedJob loadJob(const Arguments& arguments, const JobChange& change = {});

/// "2 errors, 1 warning", "no errors"
std::string countText(const Diagnostics& diagnostics);

/// Prints errors and warnings to standard error. Throws CommandError, with their number, when there
/// are errors.
void refuseErrors(const LoadedJob& loaded);

} // namespace host

#endif
