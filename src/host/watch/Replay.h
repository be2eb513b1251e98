/// @file Replay.h
///
/// Running a recorded module without its job: in a kernel of its own, with what the record says
/// that it was given, and compared call by call with what it did then.
#ifndef REPLAY_H
#define REPLAY_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// What is to be replayed.
struct ReplaySettings
{
    std::string file;
    std::string library;  ///< instead of the recorded one; empty: that one
    std::string vornHome; ///< the module tree
    double tolerance = 0; ///< by which samples may differ, in shares of the largest recorded one
    bool showMessages = false; ///< of the module, on standard error
};

/// What happened.
struct ReplayResult
{
    std::string module;                  ///< its name in the recorded job
    std::string kind;                    ///< of module
    std::string job;                     ///< its name
    std::string version;                 ///< of vorn that has written the record
    std::string library;                 ///< that was replayed
    int64_t entries = 0;                 ///< calls of entry points that were compared
    int64_t calls = 0;                   ///< calls of the interface in these
    std::vector<std::string> difference; ///< the first one, in lines; empty: there is none
    std::vector<std::string> notes;      ///< why less was compared than was to be expected
    std::string damage; ///< why the record could not be read to its end; empty: it could
};

/// Replays until the first difference, and ends the module then. What it does not take from the
/// interface is as it is here and now: files, the clock, random numbers. Files that it writes go to
/// a directory that is removed. Throws CommandError where the record cannot be read or the library
/// not be loaded. Requires: this process runs on the watched library.
ReplayResult replay(const ReplaySettings& settings);

} // namespace host

#endif
