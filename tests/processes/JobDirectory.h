/// @file JobDirectory.h
///
/// A directory with a job, its input and its scratch directory, and the command as a process.
#ifndef JOBDIRECTORY_H
#define JOBDIRECTORY_H

#include "KernelFixture.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// What a process has printed, and how it ended.
struct JobEnd
{
    int exitCode = -1;   ///< 128 and the signal's number when a signal ended it
    bool killed = false; ///< a signal ended it
    std::string output;
    std::string errors;
};

/// The command, running. Whoever starts it calls `finish`.
struct RunningJob
{
    pid_t process = 0;
    std::string outputFile;
    std::string errorFile;
};

/// A temporary directory in which `vorn` runs with the modules of the build.
class JobDirectory
{
public:
    JobDirectory();

    std::string path(const std::string& name) const;
    void write(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;
    bool exists(const std::string& name) const;
    /// Of the directory or of one in it, sorted.
    std::vector<std::string> names(const std::string& of = "") const;

    /// Starts `vorn` here with the words given; its output goes to files elsewhere.
    RunningJob start(const std::vector<std::string>& words);
    JobEnd finish(const RunningJob& job) const;
    JobEnd run(const std::vector<std::string>& words);

private:
    TemporaryDirectory directory;
    int started = 0;
};

/// Writes `in.sgy` with `traces` traces of 500 samples, and `job.yaml`, which sorts it to `out.sgy`
/// by way of the scratch file. Gives the bytes that `out.sgy` has in the end. Throws
/// std::runtime_error when that fails.
std::string makeSortingJob(JobDirectory& directory, int traces);

#endif
