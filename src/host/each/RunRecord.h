/// @file RunRecord.h
///
/// What is known in a later call about the run of a job on a file: whether its result is still that
/// of the file, the job and the programs as they are now.
#ifndef RUNRECORD_H
#define RUNRECORD_H

#include "job/ResolvedJob.h"
#include "report/SetResult.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the results of all files depend on, by what messages call it ("the job"): checksums.
using Fingerprints = std::map<std::string, std::string>;

/// Of a job that has been checked, the libraries and manifests of its modules, this program with
/// its libraries, and the options that change results. `job` is that of any of the files; the
/// parameter `module`.`parameter`, which differs from file to file, and the parameters that
/// `outputs` names with the text to take instead do not count as they are. Neither does the
/// scratch directory and the number of traces in memory, nor form and comments of the job file.
Fingerprints fingerprintsOf(const ResolvedJob& job, const std::string& module,
                            const std::string& parameter,
                            const std::map<std::string, std::string>& outputs,
                            const std::string& options);

/// A file as it was.
struct FileState
{
    std::string path;
    bool exists = false;
    int64_t bytes = 0;
    int64_t modified = 0; ///< nanoseconds since 1970
    std::string sha256;   ///< empty: not known
};

/// The file as it is, without its checksum.
FileState stateOf(const std::string& path);

/// A run and what it was made of.
struct RunRecord
{
    std::string key;         ///< of the file, see pathKey
    bool isComplete = false; ///< false: the run has begun, and nobody has seen its end
    Fingerprints fingerprints;
    std::vector<FileState> inputs;  ///< before the run: the file, then other inputs of the job
    std::vector<FileState> results; ///< after it: outputs, report, pictures, ...
    SetFile file;
};

/// Writes the record into its folder. Throws CommandError.
void writeRecord(const std::string& folder, const RunRecord& record);

/// The record in `folder`; nothing where there is none that can be read.
std::optional<RunRecord> readRecord(const std::string& folder);

/// Why the job must be run again for the file; "" when the result is still the right one. `now` has
/// the key, the fingerprints and the inputs of today. A file whose time has changed and whose size
/// has not is read, where its checksum is known.
std::string reasonToRun(const std::optional<RunRecord>& former, const RunRecord& now);

} // namespace host

#endif
