/// @file ScratchSpace.h
///
/// The directory in which a run keeps its scratch file.
#ifndef SCRATCHSPACE_H
#define SCRATCHSPACE_H

#include <string>

namespace host {

/// A directory of the job's own for scratch files, removed with everything in it.
///
/// A process that is killed leaves its directory. The next run in the same parent directory removes
/// it: each directory has a file `lock` that its process holds locked (flock) as long as it lives.
/// The system releases the lock when the process ends, whatever ends it, and the lock means the
/// same in containers, which number processes differently. A directory is removed only if
/// - it is a directory itself, of this user, with the permissions 0700,
/// - it has a lock file, and nobody holds the lock: it gets its name when it is locked already,
/// - its file system is one that only this machine can have mounted, or the file names the present
///   start of this machine: on network file systems a lock may be known to one machine alone.
class ScratchSpace
{
public:
    /// Removes directories that killed processes have left in `parent`, and makes one. Throws
    /// CommandError when that cannot be made.
    explicit ScratchSpace(const std::string& parent);
    ~ScratchSpace();
    ScratchSpace(const ScratchSpace&) = delete;
    ScratchSpace& operator=(const ScratchSpace&) = delete;

    const std::string& path() const { return directory; }
    /// How many directories of killed processes have been removed.
    int removedBefore() const { return cleared; }
    /// Needs no memory and opens no file. May be called by another thread while the job runs, more
    /// than once, and in signal handlers.
    void remove() const noexcept;

private:
    void discard() noexcept;

    std::string directory;
    int cleared = 0;
    int descriptor = -1; ///< open on the directory: removing it needs no further one
    int lock = -1;       ///< open on the lock file
};

/// Removes the directory of the ScratchSpace that lives in this process, if there is one: for a
/// process that ends without destroying it. Safe in signal handlers.
void removeScratchSpace() noexcept;

} // namespace host

#endif
