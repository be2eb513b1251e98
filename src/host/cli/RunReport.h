/// @file RunReport.h
///
/// The options of "vorn run" that put the facts of a run into files.
#ifndef RUNREPORT_H
#define RUNREPORT_H

#include "base/FileOutput.h"
#include "cli/CommandTable.h"
#include "draw/PadStore.h"
#include "job/ResolvedJob.h"
#include "job/RunResult.h"

#include <string>
#include <vector>

namespace host {

/// --report and --json, for the table of commands.
std::vector<OptionSpec> reportOptions();

/// Where the report and the JSON file of a run go.
class RunReport
{
public:
    /// Looks at the options, and at --log, before the job runs. Directories for reports are made.
    /// Throws CommandError when a file could not be written, or must not be (see claimOutput).
    /// Requires: the job's files are among the used ones (see useFilesOf).
    RunReport(const Arguments& arguments, const ResolvedJob& job);

    /// Whether anything is to be written; the facts that take time are gathered only then.
    bool isWanted() const { return !page.path.empty() || !json.path.empty(); }

    /// Whether one of them goes to standard output.
    bool usesStandardOutput() const;

    /// Writes what is wanted and returns the paths. Throws CommandError.
    std::vector<std::string> write(const RunResult& result, const std::vector<Pad>& pads) const;

private:
    Output page; ///< with an empty path: not wanted
    Output json; ///< likewise
    Output log;  ///< likewise
};

/// Makes a directory, with those above it, unless it is there. Throws CommandError, which names the
/// option, when it cannot be made or written to.
void makeDirectory(const std::string& directory, const std::string& option);

} // namespace host

#endif
