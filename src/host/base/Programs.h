/// @file Programs.h
///
/// Programs of the system that the command calls.
#ifndef PROGRAMS_H
#define PROGRAMS_H

#include <string>
#include <vector>

namespace host {

/// Whether a shell would find the program `name`, which has no slash, in PATH.
bool isInstalled(const std::string& name);

/// The path of this program, to start it again. Throws CommandError where /proc does not tell it.
std::string ownProgram();

/// The words that this process was started with, that of the program included, as the system has
/// them: they may have any bytes but zero.
std::vector<std::string> ownWords();

/// Starts this program again with its own words, in the environment of now, in the place of this
/// process. Throws CommandError where that fails.
[[noreturn]] void startAgain();

/// What `program` prints to standard output; "" where it cannot be run or fails. `call` is a
/// command line of the shell; its standard error is not shown.
std::string outputOf(const std::string& call);

/// Runs the text as a script of /bin/sh, with the standard output and standard error of this
/// process, and returns its exit code; 128 and the signal's number when a signal ended it. Throws
/// CommandError where it cannot be started.
int runScript(const std::string& script);

} // namespace host

#endif
