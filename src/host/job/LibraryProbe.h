/// @file LibraryProbe.h
///
/// Loads module libraries in a process of their own, to find out whether they can be used.
#ifndef LIBRARYPROBE_H
#define LIBRARYPROBE_H

#include "base/Sanitizers.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// Loads the libraries in a child process, in this order and with every symbol bound at once, as
/// the kernel will need them, and looks for the three entry points. Returns for each of `paths` ""
/// when it can be used, else what is wrong with it, as in "lacks the entry point process_".
///
/// One child loads all of them, since a process costs more than loading a library does. A library
/// that crashes or hangs while it is loaded takes the child with it, not the caller; it is then
/// tried alone, so that no other one is blamed, and a new child goes on behind it. Requires: no
/// other thread runs.
std::vector<std::string> probeLibraries(const std::vector<std::string>& paths);

/// The run-time library of a sanitizer that one of the libraries which could not be used needs;
/// nothing where none does. The problem of that library says so too.
const std::optional<SanitizerRuntime>& runtimeForProbed();

/// The same as probeLibraries() for one library.
std::string probeLibrary(const std::string& path);

} // namespace host

#endif
