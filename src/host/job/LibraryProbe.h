/// @file LibraryProbe.h
///
/// Loads a module library in a process of its own, to find out whether it can be used.
#ifndef LIBRARYPROBE_H
#define LIBRARYPROBE_H

#include <string>

namespace host {

/// Loads the library `path` in a child process with every symbol bound at once, as the kernel will
/// need it, and looks for the three entry points. Returns "" when it can be used, else what is
/// wrong with it, as in "lacks the entry point process_". A library that crashes or hangs while it
/// is loaded takes the child with it, not the caller. Requires: no other thread runs.
std::string probeLibrary(const std::string& path);

} // namespace host

#endif
