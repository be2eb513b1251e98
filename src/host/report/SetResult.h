/// @file SetResult.h
///
/// What the runs of one job on many files were and did: the facts that the index page and the index
/// as JSON are made of. Plain data; texts are as files and modules gave them, not escaped.
#ifndef SETRESULT_H
#define SETRESULT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace host {

/// What became of one file.
enum class FileVerdict
{
    passed, ///< the run ended with exit code 0
    failed, ///< it ended with another one, or could not be started
    notRun  ///< it was not started, or was interrupted
};

/// "passed", "failed", "not run"
const char* verdictName(FileVerdict verdict);

/// One file and its run.
struct SetFile
{
    std::string path;   ///< absolute
    std::string folder; ///< of its results, within the directory of the set
    FileVerdict verdict = FileVerdict::notRun;
    bool kept = false;   ///< the result is that of an earlier call
    std::string reason;  ///< why it was run although there was an earlier result; or empty
    int exitCode = -1;   ///< 128 and the signal's number when a signal ended it; -1: not run
    std::string message; ///< why it failed, one line; empty otherwise
    int errors = 0;
    int warnings = 0;
    int64_t traces = 0; ///< that entered the job
    /// Whether a module of the job has looked for bad traces (`qc.flagged` in its metadata). The
    /// numbers below are those of the first that has.
    bool isChecked = false;
    int64_t flagged = 0;
    std::map<std::string, int64_t> flags; ///< traces by flag; those without any left out
    /// @name Paths within the directory of the set; empty: there is none
    /// @{
    std::vector<std::string> pictures;
    std::string report;
    std::string json;
    std::string log;
    /// @}
    std::vector<std::string> outputs; ///< files that the job wrote, absolute
    std::vector<std::string> words;   ///< of the command line of the run
    std::string started;              ///< local time, YYYY-MM-DD HH:MM:SS
    double seconds = 0;               ///< wall clock of the process
    int64_t peakBytes = 0;            ///< most memory that the process had
};

/// All files.
struct SetResult
{
    std::string jobName;
    std::string jobFile;               ///< absolute
    std::string parameter;             ///< that gets the file: "read.file"
    std::vector<std::string> patterns; ///< as given
    std::string directory;             ///< of the results, absolute
    int atATime = 1;
    std::vector<std::string> notes; ///< what was left out or named otherwise, one sentence each
    std::vector<SetFile> files;     ///< in the order in which they are run
    bool interrupted = false;
    bool running = false; ///< the set is not at its end yet
    std::string started;  ///< local time, YYYY-MM-DD HH:MM:SS
    double seconds = 0;
    std::string vornVersion;
    std::string host; ///< name of the machine

    int countOf(FileVerdict verdict) const;
    int64_t traces() const;                       ///< of all files
    int64_t flagged() const;                      ///< of all files
    int64_t warnings() const;                     ///< of all files
    bool isChecked() const;                       ///< whether bad traces were looked for in any
    std::map<std::string, int64_t> flags() const; ///< of all files, traces by flag
};

} // namespace host

#endif
