/// @file ScratchSpace.h
///
/// The directory in which a run keeps its scratch file.
#ifndef SCRATCHSPACE_H
#define SCRATCHSPACE_H

#include <string>

namespace host {

/// A directory of the job's own for scratch files, removed with everything in it.
class ScratchSpace
{
public:
    /// Throws CommandError when it cannot be made in `parent`.
    explicit ScratchSpace(const std::string& parent);
    ~ScratchSpace();
    ScratchSpace(const ScratchSpace&) = delete;
    ScratchSpace& operator=(const ScratchSpace&) = delete;

    const std::string& path() const { return directory; }
    /// Needs no memory and opens no file. May be called by another thread while the job runs, more
    /// than once, and in signal handlers.
    void remove() const noexcept;

private:
    std::string directory;
    int descriptor = -1; ///< open on the directory: removing it needs no further one
};

/// Removes the directory of the ScratchSpace that lives in this process, if there is one: for a
/// process that ends without destroying it. Safe in signal handlers.
void removeScratchSpace() noexcept;

} // namespace host

#endif
