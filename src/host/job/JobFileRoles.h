/// @file JobFileRoles.h
///
/// The files of a job and their roles, for the one rule on all that the command writes: no output
/// replaces a file that the job uses.
#ifndef JOBFILEROLES_H
#define JOBFILEROLES_H

#include "file/FileRoles.h"
#include "job/ResolvedJob.h"

#include <string>

namespace host {

/// Adds the job file, and the libraries and manifests of its modules.
void addJobAndModules(VORN::FileRoles& roles, const ResolvedJob& job);

/// Makes `usedFiles` those of the job: what `addJobAndModules` adds, and the files that its modules
/// read and write. From here on they are protected from every output of this process, but for the
/// outputs of each module, which are its own to replace (see FileRoles::add).
void useFilesOf(const ResolvedJob& job);

} // namespace host

#endif
