/// @file RunFiles.h
///
/// The files that a job reads and writes.
#ifndef RUNFILES_H
#define RUNFILES_H

#include "job/ResolvedJob.h"
#include "job/RunResult.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace host {

class InputDigests;
class OutputDigests;

/// Hexadecimal SHA-256 of the file's content; "" when it cannot be read, changes meanwhile, or is
/// not a regular file: devices and pipes have no end, and what is read from them is lost.
std::string sha256OfFile(const std::string& path);

/// The files that the parameters of `job` name, input files or output files, as they are now,
/// without checksums.
std::vector<RunFile> describeFiles(const ResolvedJob& job, bool outputs);

/// Fills in the checksums. Those of inputs are made of the bytes that were read, where `digests`
/// knows them (see RunFile::bytesRead); other files are read once. `changed` tells whether a path
/// is one whose bytes are others now than those that the job has read.
void addChecksums(std::vector<RunFile>& files, const InputDigests* digests,
                  const std::function<bool(const std::string&)>& changed);

/// The same for outputs: from what was hashed while they were written, else by reading them.
void addChecksums(std::vector<RunFile>& outputs, const OutputDigests& digests);

/// Remembers how the inputs of a job were before it ran.
class InputWatch
{
public:
    explicit InputWatch(const ResolvedJob& job);

    /// One sentence for each input that is not the same file with the same content any more, with
    /// size and time before and after.
    std::vector<std::string> changes() const;
    bool isChanged(const std::string& path) const; ///< whether the file at `path` is among them

private:
    struct State
    {
        bool exists = false;
        uint64_t device = 0;
        uint64_t inode = 0;
        int64_t bytes = 0;
        timespec modified = {};
        timespec changed = {}; ///< its state, which includes owner, permissions and links
        uint64_t mode = 0;
        uint64_t owner = 0;
        uint64_t group = 0;
        uint64_t links = 0;

        bool isSameContent(const State& other) const;
        std::string text() const;
    };
    struct Input
    {
        RunFile file;
        State before;
    };

    static State look(const std::string& path);

    std::vector<Input> inputs;
};

/// Remembers how the outputs of a job were before it ran, to tell afterwards what it has written.
class OutputWatch
{
public:
    explicit OutputWatch(const ResolvedJob& job);

    /// Whether the file was made or changed since.
    bool isWritten(const std::string& path) const;
    /// Files made or changed since that have an output's name or begin with it, as temporary names
    /// do.
    std::vector<std::string> written() const;
    /// Those of them that this process has not completed: what is left of a job that was cut short.
    std::vector<std::string> incomplete() const;
    /// Calls `tell` with each output made or changed since that this process has not completed.
    /// Allocates nothing; safe in signal handlers if `tell` is.
    void listIncomplete(void (*tell)(const char* path)) const noexcept;

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

    static State stateOf(const struct stat& status);
    States look() const;

    std::vector<std::string> outputs;
    States before;
};

} // namespace host

#endif
