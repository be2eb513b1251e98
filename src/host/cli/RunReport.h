/// @file RunReport.h
///
/// The options of "vorn run" that put the facts of a run into files.
#ifndef RUNREPORT_H
#define RUNREPORT_H

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
    /// Looks at the options before the job runs. Directories for reports are made. Throws
    /// CommandError when a file could not be written, or would replace one that the job or the log
    /// uses.
    RunReport(const Arguments& arguments, const ResolvedJob& job);

    /// Whether anything is to be written; the facts that take time are gathered only then.
    bool isWanted() const { return !htmlPath.empty() || !jsonPath.empty(); }

    /// Writes what is wanted and returns the paths. Throws CommandError.
    std::vector<std::string> write(const RunResult& result, const std::vector<Pad>& pads) const;

private:
    std::string htmlPath;
    std::string jsonPath;
};

/// Makes a directory, with those above it, unless it is there. Throws CommandError, which names the
/// option, when it cannot be made or written to.
void makeDirectory(const std::string& directory, const std::string& option);

} // namespace host

#endif
