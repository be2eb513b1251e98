/// @file DirectoryRemoval.h
///
/// Removes a directory where nothing may fail: in destructors without memory, and in signal
/// handlers.
#ifndef DIRECTORYREMOVAL_H
#define DIRECTORYREMOVAL_H

namespace host {

/// Removes everything in the directory that `descriptor` is open on. Links are removed, never
/// followed. Directories inside are entered to a depth of eight. Allocates nothing; safe in signal
/// handlers. Moves the position of `descriptor`. The file `last` (null for none) goes when nothing
/// else is left. Returns whether nothing is left.
bool removeEntries(int descriptor, const char* last = nullptr) noexcept;

} // namespace host

#endif
