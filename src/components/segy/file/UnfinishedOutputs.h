/// @file UnfinishedOutputs.h
///
/// The outputs of this process that are not complete: one registry for the command and for all
/// modules, so that a process that is interrupted or crashes can remove every one of them.
///
/// An output is in the registry from before its temporary file exists until it has its final name
/// or is removed. The entries are atomic words in memory that is never released, so a signal
/// handler or another thread may walk them at any moment, in the middle of a commit as well:
/// whoever wins, the `unlink` of the walk or the `rename` of the commit, the file is gone or whole.
/// A module that is unloaded without destroying its outputs leaves entries that stay valid.
///
/// A child made by fork() inherits the entries of its parent and never acts on them.
#ifndef UNFINISHEDOUTPUTS_H
#define UNFINISHEDOUTPUTS_H

#include "segy_export.h"

#include <string>
#include <sys/stat.h>

namespace VORN {

/// How many outputs of one process can be unfinished at a time: as many as a process may have files
/// open, as a rule. Those that are complete or removed make room for others.
constexpr int mostUnfinishedOutputs = 1024;

/// From the return of this function on, no output of this process begins, and no commit of an
/// OutputFile begins: both fail. A commit that has begun either ends, with a whole file under its
/// final name, or fails because `removeUnfinishedOutputs` has removed the file. For a process that
/// is about to end, before that function; it cannot be undone.
///
/// Waits for outputs that other threads are creating at this moment, at most a second for each
/// (a file system that does not answer). Safe in signal handlers.
VORN_SEGY_EXPORT void stopOutputs() noexcept;

/// Removes the temporary files of all outputs that this process has not completed, and calls `tell`
/// (may be null) with `context` and the path of each that is not whole under its final name: for a
/// process that ends without destroying its objects. What is written to them afterwards is lost,
/// and committing them fails. A file that has replaced the temporary one meanwhile is left alone.
/// Safe in signal handlers if `tell` is.
VORN_SEGY_EXPORT void removeUnfinishedOutputs(void (*tell)(void* context, const char* path),
                                              void* context) noexcept;

/// Whether the file that `status` describes is an output that this process has completed, of the
/// last 1024, and as it was then. Safe in signal handlers.
VORN_SEGY_EXPORT bool isCompletedOutput(const struct stat& status) noexcept;

/// Whether `stopOutputs` has been called.
VORN_SEGY_EXPORT bool outputsAreStopped() noexcept;

/// The temporary file of one output, and its entry in the registry. OutputFile and the command use
/// it.
class VORN_SEGY_EXPORT UnfinishedOutput
{
public:
    UnfinishedOutput() = default; ///< without a file
    ~UnfinishedOutput() { remove(); }
    UnfinishedOutput(const UnfinishedOutput&) = delete;
    UnfinishedOutput& operator=(const UnfinishedOutput&) = delete;

    /// Creates a file of mode 0600 whose path is `pattern` with its last six characters, "XXXXXX",
    /// replaced. Returns its descriptor, open for reading and writing and closed on execution,
    /// which belongs to the caller; -1 with `errno` on failure: ECANCELED after `stopOutputs`,
    /// EUSERS when `mostUnfinishedOutputs` are unfinished. Requires: none has been created yet.
    int create(const std::string& pattern);
    /// Takes over the file at `path`, which must not be a link: from now on it is as one that
    /// `create` has made. Returns and requires as that does.
    int adopt(const std::string& path);

    /// The path of the temporary file; "" when there is none.
    const char* path() const;
    /// Whether this process has created the file; else a child has inherited the object.
    bool isOfThisProcess() const;

    /// The file has all its bytes and is about to get its final name.
    void noteWhole() noexcept;
    /// The file has got its final name, and is no longer to be removed.
    void complete() noexcept;
    /// Removes the file, unless it is complete or another process has created it.
    void remove() noexcept;

private:
    enum class Origin
    {
        made,
        found
    };

    int begin(const std::string& pattern, Origin origin);
    void release() noexcept; ///< ends the use of the entry

    struct Entry;
    friend struct UnfinishedRegistry;

    Entry* entry = nullptr;
};

} // namespace VORN

#endif
