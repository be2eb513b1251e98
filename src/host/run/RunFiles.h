/// @file RunFiles.h
///
/// The files that a job reads and writes.
#ifndef RUNFILES_H
#define RUNFILES_H

#include "job/ResolvedJob.h"
#include "job/RunResult.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace host {

/// Hexadecimal SHA-256 of the file's content; "" when it cannot be read.
std::string sha256OfFile(const std::string& path);

/// The files that the parameters of `job` name, input files or output files, as they are now. With
/// `checksums`, each is read once.
std::vector<RunFile> describeFiles(const ResolvedJob& job, bool outputs, bool checksums);

/// Remembers how the outputs of a job were before it ran, to tell afterwards what it has written.
class OutputWatch
{
public:
    explicit OutputWatch(const ResolvedJob& job);

    /// Whether the file was made or changed since.
    bool isWritten(const std::string& path) const;
    /// Files made or changed since that have an output's name or begin with it, as temporary names
    /// do: what is left of a job that was cut short.
    std::vector<std::string> written() const;

private:
    struct State
    {
        uint64_t inode = 0;
        int64_t seconds = 0; ///< of the last change
        int64_t nanoseconds = 0;
        int64_t bytes = 0;

        bool operator==(const State&) const = default;
    };
    using States = std::map<std::string, State>;

    States look() const;

    std::vector<std::string> outputs;
    States before;
};

} // namespace host

#endif
