/// @file RunInParts.h
///
/// "vorn run --jobs": one job as several processes of this machine.
#ifndef RUNINPARTS_H
#define RUNINPARTS_H

#include "cli/CommandTable.h"
#include "cli/JobLoader.h"
#include "parts/PartsOfJob.h"

#include <memory>

namespace host {

/// The value of --jobs: a number, or the usable cores for "auto"; 1 where it is not given. Throws
/// CommandError for other values.
int jobsAtATime(const Arguments& arguments);

/// The job in parts, as --jobs asks for; null where one process does as well: with one job at a
/// time, where no module can run in parts, and where there is only one part.
std::unique_ptr<PartsOfJob> partsOnThisMachine(const Arguments& arguments, const LoadedJob& loaded);

} // namespace host

#endif
