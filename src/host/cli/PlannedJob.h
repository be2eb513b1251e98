/// @file PlannedJob.h
///
/// What the commands for the parts of a job have in common: the plan in its directory, and the job
/// that it is for.
#ifndef PLANNEDJOB_H
#define PLANNEDJOB_H

#include "cli/CommandTable.h"
#include "cli/JobLoader.h"
#include "parts/Plan.h"

#include <string>

namespace host {

/// A plan and its job, which is the one that was planned.
struct PlannedJob
{
    std::string directory; ///< absolute
    Plan plan;
    std::string planSha256; ///< of the plan's file
    LoadedJob loaded;
};

/// The argument that names the directory of a plan, for the table of commands.
ArgumentSpec planArgument();

/// --portable, for the table of commands.
OptionSpec portableOption();

/// Notes in `plan` how the command was called for `loaded`: job file, options, working directory,
/// version and machine.
void noteCall(const Arguments& arguments, const LoadedJob& loaded, Plan& plan);

/// Reads the plan in the directory of the call, and loads its job with the options of then: the
/// working directory of the process becomes that of the plan. Throws CommandError, which names what
/// differs with both values, where job, inputs, version or machine are not those of the plan.
PlannedJob loadPlannedJob(const Arguments& arguments);

} // namespace host

#endif
